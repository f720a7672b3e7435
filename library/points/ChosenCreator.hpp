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

/// Makes an array of the elements of another creator's array that a mask chooses, as a list whatever the shape of the
/// whole. Until the mask is determined, its stated extents are those of the whole fragment: at most so many.
///
/// Arrays of the fragment's other fields that are in the cache come along, so that a small cache does not have the file
/// decoded again for each of them.
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
