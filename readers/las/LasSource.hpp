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

/// A LAS or LAZ file whose points are decoded on demand, fragment by fragment; shared by everything that was
/// made of it. Safe for several threads, which decode one after the other.
///
/// At most some dozen sources keep their files open at a time, so that thousands of tiles can be inputs of
/// one run.
class LasSource {
public:
    /// Reads what the file states about itself; throws what Las::LasFile throws, and Anchor::LimitError when
    /// its fragments are too many to be listed within the host's limit.
    LasSource(std::string path, ConvLib::ReadOptions options);
    LasSource(const LasSource&) = delete;
    LasSource& operator=(const LasSource&) = delete;
    ~LasSource();

    [[nodiscard]] const Las::LasFile& file() const noexcept { return *file_; }
    [[nodiscard]] const ConvLib::ReadOptions& options() const noexcept { return options_; }
    [[nodiscard]] const std::vector<LasField>& fields() const noexcept { return fields_; }

    [[nodiscard]] std::uint64_t fragmentCount() const noexcept { return fragmentCount_; }
    [[nodiscard]] std::uint64_t pointsOf(std::uint64_t fragment) const noexcept;

    /// Fragments are named by their number, padded so that the order of names is the order of points:
    /// "000000".
    [[nodiscard]] std::string fragmentName(std::uint64_t fragment) const;

    /// Decodes a fragment in one pass. `wanted` are indices into fields(), the one that is needed first; the
    /// others come along. The result has one array a field, in that order, null where there is none: colours
    /// that were not needed are left out while it is not known yet whether the file has 8 or 16 bits a
    /// channel.
    ///
    /// Where colours are needed and that is not known, the fragments that no pass has seen are looked through
    /// until one channel above 255 turns up. Throws what Las::PointDecoder throws, and what the host's Tick
    /// throws.
    [[nodiscard]] std::vector<Anchor::StrongPtr<Sheaf::MemBase>> decode(std::uint64_t fragment,
                                                                        std::span<const std::size_t> wanted);

    /// What the file states beside its fields.
    [[nodiscard]] const Sheaf::FileStatement& statement() const noexcept { return statement_; }

    /// The coordinate reference system as well-known text where the file states it so; else empty.
    [[nodiscard]] std::string referenceSystem() const;

    /// What the file holds and neither fields nor statement carry; see ConvLib::InputReport.
    [[nodiscard]] const std::vector<std::string>& notCarried() const noexcept { return notCarried_; }

private:
    enum class ColourDepth { Unknown, Bits8, Bits16 };

    /// What is learnt from every decoded point, whatever it is decoded for.
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
    std::vector<bool> seenFragments_; // whose colours are known to be narrow
    std::uint64_t unseenFragments_ = 0;
};

} // namespace Tidewatch
