// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/WeakPtr.hpp"
#include "library/points/FragmentMask.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/Field.hpp"

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Creates a one-dimensional array of those elements of another creator's array that a mask chooses. Until
/// the mask is determined, the stated extent is the number of elements of the fragment, an upper bound.
///
/// For other fields of the fragment whose arrays are in the cache, the chosen arrays are created as well, so
/// that the file is not decoded again for each field if the cache is small.
class ChosenCreator final : public Sheaf::CachedCreator {
public:
    /// The creators of one fragment.
    class Family {
    public:
        /// `where` names the fragment in errors.
        Family(Anchor::StrongPtr<const FragmentMask> mask, std::string where)
            : mask_(std::move(mask)),
              where_(std::move(where)) {}
        [[nodiscard]] const FragmentMask& mask() const noexcept { return *mask_; }

    private:
        friend class ChosenCreator;
        Anchor::StrongPtr<const FragmentMask> mask_;
        std::string where_;
        std::mutex mutex_;
        std::vector<Anchor::WeakPtr<ChosenCreator>> members_;
    };

    /// `whole` has as many elements as the family's mask.
    [[nodiscard]] static Anchor::StrongPtr<ChosenCreator> make(const std::shared_ptr<Family>& family,
                                                               Sheaf::Field::Creator whole);
    ~ChosenCreator() override;

    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override;

private:
    ChosenCreator(std::shared_ptr<Family> family, Sheaf::Field::Creator whole);
    [[nodiscard]] Anchor::StrongPtr<Sheaf::MemBase> chosenPart() const;

    std::shared_ptr<Family> family_;
    Sheaf::Field::Creator whole_;
};

} // namespace Tidewatch
