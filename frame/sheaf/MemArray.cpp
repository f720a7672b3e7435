// SPDX-License-Identifier: Apache-2.0
#include "sheaf/MemArray.hpp"

namespace Sheaf {

MemBase::~MemBase() = default;

template <std::size_t N, class T>
bool MemArray<N, T>::TypeIsRegistered = false;

#define TIDEWATCH_ARRAYS_OF(TYPE, NAME, COMPONENT, COUNT)                                                    \
    template class MemArray<1, TYPE>;                                                                        \
    template class MemArray<2, TYPE>;                                                                        \
    template class MemArray<3, TYPE>;                                                                        \
    template class MemArray<4, TYPE>;
TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_ARRAYS_OF)
#undef TIDEWATCH_ARRAYS_OF

} // namespace Sheaf
