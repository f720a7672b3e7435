// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/points/FragmentMask.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/Field.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// Creates the positions of the cells of a lattice that a mask chooses, with heights from an array of
/// scalars.
class CellPositions final : public Sheaf::CachedCreator {
public:
    using Lattice = Sheaf::UniformCartesianArray;

    /// `heights` has as many elements as the lattice and the mask; `where` names the array in errors.
    CellPositions(Anchor::StrongPtr<const Lattice> lattice, Anchor::StrongPtr<const FragmentMask> mask,
                  Sheaf::Field::Creator heights, std::string where);
    ~CellPositions() override;

    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override;

    /// The values of an array of scalars as doubles. Throws Anchor::ModelError, beginning with `where`, if it
    /// does not have `size` scalars.
    [[nodiscard]] static std::vector<double> scalars(const Sheaf::CreativeArrayBase& data, std::size_t size,
                                                     const std::string& where);

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override;

private:
    Anchor::StrongPtr<const Lattice> lattice_;
    Anchor::StrongPtr<const FragmentMask> mask_;
    Sheaf::Field::Creator heights_;
    std::string where_;
};

} // namespace Tidewatch
