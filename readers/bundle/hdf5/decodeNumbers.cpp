// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/decodeNumbers.hpp"

#include <string>

namespace Tidewatch::Hdf5 {

void decodeNumbers(const Object& object, const NumberType& stored, std::span<const std::byte> source,
                   const std::type_info& elementType, std::span<std::byte> target) {
    if (stored.decode(source, elementType, target))
        object.fail("holds a " + std::string(stored.name()) + " value that does not fit " +
                    std::string(Sheaf::elementTypeName(elementType)));
}

} // namespace Tidewatch::Hdf5
