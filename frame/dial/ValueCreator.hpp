// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "dial/VValue.hpp"

#include <cstddef>
#include <typeinfo>

namespace Dial {

/// Creates parameter values of one type, for code that knows the type only at run time.
class TIDEWATCH_API ValueCreator : public Anchor::ReferenceBase<ValueCreator> {
public:
    ~ValueCreator() override;

    [[nodiscard]] virtual const std::type_info& type() const noexcept = 0;

    /// A new value, zero or empty.
    [[nodiscard]] virtual Anchor::StrongPtr<Value> make() const = 0;

    /// The shared creator of values of a type; null if no SharedValueCreator of the type exists.
    [[nodiscard]] static Anchor::StrongPtr<ValueCreator> find(const std::type_info& type);
};

/// Keeps the shared creator of `VValue<T>` alive: the first of these objects creates it, the last one
/// destroys it.
template <class T>
class TIDEWATCH_API SharedValueCreator {
public:
    SharedValueCreator();
    ~SharedValueCreator();
    SharedValueCreator(const SharedValueCreator&) = delete;
    SharedValueCreator& operator=(const SharedValueCreator&) = delete;
};

extern template class SharedValueCreator<double>;

} // namespace Dial
