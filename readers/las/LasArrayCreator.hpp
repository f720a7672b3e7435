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
/// fields always, those of minor fields (LasField::isMinor) as long as the cache can hold them all together.
class LasArrayCreator final : public Sheaf::CachedCreator {
public:
    /// Shared by the creators of one fragment.
    struct Fragment {
        std::shared_ptr<LasSource> source;
        std::uint64_t index;
        std::vector<Anchor::WeakPtr<LasArrayCreator>> creators; // by field
    };

    /// The creators of all fields of a fragment, in the order of the source's fields.
    [[nodiscard]] static std::vector<Anchor::StrongPtr<LasArrayCreator>>
    makeAll(const std::shared_ptr<LasSource>& source, std::uint64_t fragment);

    ~LasArrayCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override { return plan().bytes; }

private:
    struct Plan {
        std::vector<std::size_t> fields; // this creator's first
        std::uint64_t bytes;
    };

    LasArrayCreator(std::shared_ptr<const Fragment> fragment, std::size_t field);
    [[nodiscard]] Plan plan() const;
    [[nodiscard]] const LasField& field() const noexcept { return fragment_->source->fields()[field_]; }

    std::shared_ptr<const Fragment> fragment_;
    std::size_t field_;
};

} // namespace Tidewatch
