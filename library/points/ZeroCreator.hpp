// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/CachedCreator.hpp"
#include "sheaf/Field.hpp"

namespace Tidewatch {

/// Creates a list of zeros as long as another creator's array.
class ZeroCreator final : public Sheaf::CachedCreator {
public:
    ZeroCreator(const std::type_info& elementType, Sheaf::Field::Creator asLongAs);
    ~ZeroCreator() override;

    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override;

private:
    /// The length of the other array, which is created if it is not known otherwise.
    [[nodiscard]] std::uint64_t count() const;

    Sheaf::Field::Creator other_;
};

} // namespace Tidewatch
