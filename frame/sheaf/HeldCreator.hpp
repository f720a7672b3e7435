// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/CreativeArrayBase.hpp"

namespace Sheaf {

/// A creator for data that a host already has in memory: it holds the array. There is nothing to create
/// again, so create(true) returns the same array.
class TIDEWATCH_API HeldCreator final : public CreativeArrayBase {
public:
    /// Throws Anchor::ModelError for a null array.
    explicit HeldCreator(Anchor::StrongPtr<MemBase> array);
    ~HeldCreator() override;

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool anew) const override;
    [[nodiscard]] const std::type_info& elementType() const noexcept override;
    [[nodiscard]] std::optional<Extents> extents() const override;
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override;

private:
    Anchor::StrongPtr<MemBase> array_;
};

} // namespace Sheaf
