// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/PointLayout.hpp"
#include "readers/InputFile.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Tidewatch::Las {

/// The public header block of a LAS file, versions 1.0 to 1.4 (LAS 1.4 R15, "Public Header Block", and the
/// same section of the older versions).
struct LasHeader {
    unsigned versionMinor = 0;      ///< of 1.0 to 1.4
    std::uint16_t fileSourceId = 0; ///< reserved, and 0, in 1.0
    /// Bits of Formats::Las::GlobalEncoding; 0 in versions 1.0 and 1.1, which do not have the field.
    std::uint16_t globalEncoding = 0;
    std::string systemIdentifier;   ///< any bytes
    std::string generatingSoftware; ///< any bytes
    std::uint16_t creationDay = 0;  ///< of the year, from 1; as stated
    std::uint16_t creationYear = 0; ///< as stated
    std::uint16_t headerSize = 0;
    std::uint64_t pointOffset = 0; ///< where the point data begins, in bytes from the beginning of the file
    std::uint32_t vlrCount = 0;
    std::uint64_t evlrOffset = 0; ///< the first extended variable length record; 0 without any
    std::uint32_t evlrCount = 0;

    unsigned pointFormat = 0; ///< 0 to 10, without the bits that mark compression
    bool compressed = false;
    std::uint16_t recordLength = 0; ///< at least the format's natural size
    std::uint64_t pointCount = 0;
    /// As stated in the 32-bit field, the only one before 1.4, and in the 64-bit field of 1.4.
    std::uint32_t legacyPointCount = 0;
    std::uint64_t longPointCount = 0;
    /// Points by return as stated, from the first return on: 15 counts in 1.4, else 5.
    std::vector<std::uint64_t> countsByReturn;

    std::array<double, 3> scale{};   ///< finite and not 0
    std::array<double, 3> offset{};  ///< finite
    std::array<double, 3> minimum{}; ///< as stated; not checked against the points
    std::array<double, 3> maximum{};

    [[nodiscard]] const Formats::Las::PointLayout& layout() const noexcept {
        return Formats::Las::pointLayouts[pointFormat];
    }

    /// Bytes of each record after the parts that the format defines.
    [[nodiscard]] std::uint16_t extraByteCount() const noexcept {
        return static_cast<std::uint16_t>(recordLength - layout().naturalSize);
    }

    /// The coordinate of a stored integer along an axis (0 to 2).
    [[nodiscard]] double coordinate(std::size_t axis, std::int32_t stored) const noexcept {
        return static_cast<double>(stored) * scale[axis] + offset[axis];
    }

    /// Reads the header and checks every field that other code relies on, including that uncompressed point
    /// data fits the file. Throws Anchor::FormatError with path, object and cause.
    [[nodiscard]] static LasHeader read(const InputFile& file);
};

} // namespace Tidewatch::Las
