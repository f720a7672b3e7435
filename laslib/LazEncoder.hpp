// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "laspoint.hpp"
#include "mydefs.hpp"

#include <iosfwd>
#include <memory>
#include <span>

/// Compresses the points of one file with the LASzip library, which is used for nothing else: headers and
/// counts are written by LASwriterLAS.
class LazEncoder {
public:
    /// For records of a point format and length; isReady() returns whether the library accepts them.
    LazEncoder(U8 format, U16 recordLength);
    ~LazEncoder();
    LazEncoder(const LazEncoder&) = delete;
    LazEncoder& operator=(const LazEncoder&) = delete;

    [[nodiscard]] bool isReady() const noexcept;

    /// The variable length record, including its header, that describes the compression. Valid as long as
    /// this object.
    [[nodiscard]] std::span<const U8> description() const noexcept;

    /// Starts the points at the stream's current position. The stream must outlive this object.
    bool begin(std::ostream& stream);

    /// Compresses a point.
    bool write(const LASpoint& point);

    /// Ends the last chunk and writes the chunk table.
    bool end();

private:
    struct Library;
    std::unique_ptr<Library> library_;
};
