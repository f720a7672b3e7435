// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dial/Value.hpp"

#include <utility>

namespace Dial {

/// A parameter value of type T.
template <class T>
class TIDEWATCH_API VValue : public Value {
public:
    VValue() = default;
    explicit VValue(T value) : value_(std::move(value)) {}
    ~VValue() override = default;

    [[nodiscard]] const std::type_info& type() const noexcept override { return typeid(T); }
    [[nodiscard]] const T& value() const noexcept { return value_; }
    void setValue(T value) { value_ = std::move(value); }

private:
    T value_{};
};

extern template class VValue<double>;

} // namespace Dial
