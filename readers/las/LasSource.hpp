// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/ReadOptions.hpp"
#include "readers/las/LasColumn.hpp"
#include "readers/las/LasFile.hpp"
#include "readers/las/PointDecoder.hpp"
#include "sheaf/FileStatement.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A LAS or LAZ file whose points are decoded on demand, fragment by fragment; shared by all creators of its
/// arrays. Thread-safe; threads decode one after the other.
///
/// At most 64 sources keep their files open at a time, so that a run can have thousands of tiles as input.
class LasSource {
public:
    /// Reads the file's metadata; throws what Las::LasFile throws, and Anchor::LimitError when the list of
    /// its fragments would exceed the host's limit.
    LasSource(std::string path, ConvLib::ReadOptions options);
    LasSource(const LasSource&) = delete;
    LasSource& operator=(const LasSource&) = delete;
    ~LasSource();

    [[nodiscard]] const Las::LasFile& file() const noexcept { return *file_; }
    [[nodiscard]] const ConvLib::ReadOptions& options() const noexcept { return options_; }
    [[nodiscard]] const std::vector<LasField>& fields() const noexcept { return fields_; }

    [[nodiscard]] std::uint64_t fragmentCount() const noexcept { return fragmentCount_; }
    [[nodiscard]] std::uint64_t pointsOf(std::uint64_t fragment) const noexcept;

    /// A fragment's name is its number, padded so that names sort in the order of points: "000000".
    [[nodiscard]] std::string fragmentName(std::uint64_t fragment) const;

    /// Decodes a fragment in one pass. `wanted` are indices into fields(), the required one first; the others
    /// are optional. The result has one array per field, in that order, or null: optional colours are left
    /// out while it is not known yet whether the file has 8 or 16 bits per channel.
    ///
    /// If colours are required and that is not known, the fragments not decoded so far are searched for a
    /// channel value above 255. Throws what Las::PointDecoder throws, and what the host's Tick throws.
    [[nodiscard]] std::vector<Anchor::StrongPtr<Sheaf::MemBase>> decode(std::uint64_t fragment,
                                                                        std::span<const std::size_t> wanted);

    /// The file's properties beside its fields.
    [[nodiscard]] const Sheaf::FileStatement& statement() const noexcept { return statement_; }

    /// The coordinate reference system if the file states it as well-known text, else empty.
    [[nodiscard]] std::string referenceSystem() const;

    /// Content of the file that neither fields nor statement carry; see ConvLib::InputReport.
    [[nodiscard]] const std::vector<std::string>& notCarried() const noexcept { return notCarried_; }

private:
    enum class ColourDepth { Unknown, Bits8, Bits16 };

    /// What is recorded of every decoded point, whatever field it is decoded for.
    struct Findings {
        std::uint16_t colours = 0;
        void take(std::span<const Las::Point> points) noexcept;
    };

    void readStatement();
    void findNotCarried();
    [[nodiscard]] Las::PointDecoder& decoder();
    [[nodiscard]] bool tryToClose();
    void findColourDepth(std::uint64_t lastFragment);
    void lookForWideColours(std::uint64_t fragment);
    void remember(const Findings& findings);
    void rememberSeen(std::uint64_t fragment);

    std::shared_ptr<const Las::LasFile> file_;
    ConvLib::ReadOptions options_;
    std::vector<LasField> fields_;
    std::uint64_t fragmentPoints_;
    std::uint64_t fragmentCount_;
    Sheaf::FileStatement statement_;
    std::vector<std::string> notCarried_;

    std::mutex mutex_; // guards the members from here on
    std::unique_ptr<Las::PointDecoder> decoder_;
    ColourDepth colourDepth_ = ColourDepth::Unknown;
    std::vector<bool> seenFragments_; // whose colours are known to have 8 bits
    std::uint64_t unseenFragments_ = 0;
};

} // namespace Tidewatch
