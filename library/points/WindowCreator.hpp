// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/CachedCreator.hpp"
#include "sheaf/Field.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace Tidewatch {

/// A part of a lattice: the first place and the number of places along each axis, x first.
struct LatticeWindow {
    std::array<std::uint64_t, 3> first{};
    std::array<std::uint64_t, 3> count{};

    [[nodiscard]] std::uint64_t places() const noexcept { return count[0] * count[1] * count[2]; }
};

/// Creates an array of the elements of another creator's array inside a window.
class WindowCreator final : public Sheaf::CachedCreator {
public:
    /// `whole` has one to three axes, and extents that the window fits into; a missing axis counts as 1. `where` names
    /// the fragment in errors.
    WindowCreator(Sheaf::Field::Creator whole, const LatticeWindow& window, std::string where);
    ~WindowCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override;

private:
    Sheaf::Field::Creator whole_;
    LatticeWindow window_;
    std::string where_;
};

} // namespace Tidewatch
