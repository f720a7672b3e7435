// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/Object.hpp"

#include <cstddef>
#include <span>
#include <typeinfo>

namespace Tidewatch::Hdf5 {

/// NumberType::decode for the numbers of an object: throws Anchor::FormatError when a number does not fit the
/// element type.
void decodeNumbers(const Object& object, const NumberType& stored, std::span<const std::byte> source,
                   const std::type_info& elementType, std::span<std::byte> target);

} // namespace Tidewatch::Hdf5
