// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/WeakPtr.hpp"
#include "readers/las/LasSource.hpp"
#include "sheaf/CachedCreator.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Tidewatch {

/// Makes the array of one field for one fragment of a LAS or LAZ file.
///
/// Since decompressing a point gives all its fields, the arrays of the fragment's other fields are created as
/// well if they are not in the cache and the host wants them (ReadOptions::IsWanted): those of the main
/// fields always, those of minor fields (LasField::isMinor) as long as the cache can hold them all together. So are
/// those of other fragments where the reader has to decode these anyway (LasSource::decode), as far as the cache has
/// room.
class LasArrayCreator final : public Sheaf::CachedCreator {
public:
    struct Fragment;

    /// Shared by the creators of one file.
    struct File {
        explicit File(std::shared_ptr<LasSource> from) : source(std::move(from)) {}
        std::shared_ptr<LasSource> source;
        std::vector<std::weak_ptr<const Fragment>> fragments; // complete once all creators have been made
    };

    /// Shared by the creators of one fragment.
    struct Fragment {
        std::shared_ptr<File> file;
        std::uint64_t index;
        std::vector<Anchor::WeakPtr<LasArrayCreator>> creators; // by field
        /// Its cache entry holds the raw colours until they can be narrowed; null if the file has none.
        Anchor::StrongPtr<Sheaf::CachedCreator> rawColours;
    };

    /// The creators of all fields of the file's next fragment, in the order of the source's fields.
    [[nodiscard]] static std::vector<Anchor::StrongPtr<LasArrayCreator>>
    makeAll(const std::shared_ptr<File>& file);

    ~LasArrayCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override;

private:
    class RawColours;

    struct Plan {
        std::vector<std::size_t> fields; // this creator's first
        std::uint64_t bytes;
    };

    LasArrayCreator(std::shared_ptr<const Fragment> fragment, std::size_t field);
    [[nodiscard]] LasSource& source() const noexcept { return *fragment_->file->source; }
    [[nodiscard]] static Plan planOf(const Fragment& fragment, std::size_t required);
    [[nodiscard]] Plan plan() const { return planOf(*fragment_, field_); }
    [[nodiscard]] const LasField& field() const noexcept { return source().fields()[field_]; }
    [[nodiscard]] std::vector<std::size_t> keepOf(std::uint64_t fragment, std::uint64_t& room) const;

    std::shared_ptr<const Fragment> fragment_;
    std::size_t field_;
};

} // namespace Tidewatch
