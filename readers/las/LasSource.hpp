// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/ReadOptions.hpp"
#include "readers/las/DecoderPool.hpp"
#include "readers/las/LasColumn.hpp"
#include "readers/las/LasFile.hpp"
#include "sheaf/FileStatement.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A LAS or LAZ file whose points are decoded on demand, fragment by fragment; shared by all creators of its
/// arrays. Thread-safe; threads decode one after the other, each with the workers of the options.
///
/// At most 16 sources keep their files open at a time, so that a run can have thousands of tiles as input.
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

    /// Arrays of a fragment, by the fields that were wanted; null where there is none.
    struct Decoded {
        std::uint64_t fragment;
        std::vector<std::size_t> fields;
        std::vector<Anchor::StrongPtr<Sheaf::MemBase>> arrays;
        /// In place of optional colours while the depth is unknown: the channels of the points as the file has them,
        /// for narrow(). Null otherwise.
        Anchor::StrongPtr<Sheaf::MemBase> rawColours;
    };

    /// Which fields to keep of a fragment that is decoded before anybody asked for it; may be none.
    using Keep = std::function<std::vector<std::size_t>(std::uint64_t fragment)>;

    /// Decodes a fragment in one pass. `wanted` are indices into fields(), the required one first; the others
    /// are optional. The result has one array per field, in that order, or null: optional colours are left
    /// raw while it is not known yet whether the file has 8 or 16 bits per channel.
    ///
    /// If colours are required and that is not known, the fragments not decoded so far are searched for a
    /// channel value above 255. What `keep` names of them is decoded in the same pass; the result then lists these
    /// fragments after the first. Throws what Las::DecoderPool throws, and what the host's Tick throws.
    [[nodiscard]] std::vector<Decoded> decode(std::uint64_t fragment, std::span<const std::size_t> wanted,
                                              const Keep& keep);

    /// Makes the array of colours of a fragment from its raw ones; searches other fragments like decode(). The result
    /// begins with this fragment's colours.
    [[nodiscard]] std::vector<Decoded> narrow(std::uint64_t fragment, std::size_t field,
                                              const Anchor::StrongPtr<Sheaf::MemBase>& rawColours,
                                              const Keep& keep);

    /// Whether decoding a fragment with this field required would decode others, too, as far as is known now.
    [[nodiscard]] bool looksAhead(std::size_t field) const;

    /// The file's properties beside its fields.
    [[nodiscard]] const Sheaf::FileStatement& statement() const noexcept { return statement_; }

    /// The coordinate reference system if the file states it as well-known text, else empty.
    [[nodiscard]] std::string referenceSystem() const;

    /// Content of the file that neither fields nor statement carry; see ConvLib::InputReport.
    [[nodiscard]] const std::vector<std::string>& notCarried() const noexcept { return notCarried_; }

private:
    enum class ColourDepth { Unknown, Bits8, Bits16 };

    class Pass;

    void readStatement();
    void findNotCarried();
    [[nodiscard]] Las::DecoderPool& decoders();
    [[nodiscard]] bool tryToClose();
    void run(Pass& pass);
    void search(std::uint64_t fragment);
    [[nodiscard]] Las::Layers layersOf(std::span<const std::size_t> fields) const;
    [[nodiscard]] Las::Layers decodable(Las::Layers layers) const;
    [[nodiscard]] std::vector<Pass> findColourDepth(std::uint64_t lastFragment, const Keep& keep);
    void remember(std::uint64_t fragment, bool wide);

    std::shared_ptr<const Las::LasFile> file_;
    ConvLib::ReadOptions options_;
    std::vector<LasField> fields_;
    std::uint64_t fragmentPoints_;
    std::uint64_t fragmentCount_;
    Sheaf::FileStatement statement_;
    std::vector<std::string> notCarried_;

    mutable std::mutex mutex_; // guards the members from here on
    std::unique_ptr<Las::DecoderPool> decoders_;
    ColourDepth colourDepth_ = ColourDepth::Unknown;
    std::vector<bool> seenFragments_; // whose colours are known to have 8 bits
    std::uint64_t unseenFragments_ = 0;
};

} // namespace Tidewatch
