// SPDX-License-Identifier: Apache-2.0
#include "sheaf/MemArray.hpp"

namespace Sheaf {

MemBase::~MemBase() = default;

template <std::size_t N, class T>
bool MemArray<N, T>::TypeIsRegistered = false;

#define TIDEWATCH_ARRAYS_OF(TYPE)                                                                            \
    template class MemArray<1, TYPE>;                                                                        \
    template class MemArray<2, TYPE>;                                                                        \
    template class MemArray<3, TYPE>;                                                                        \
    template class MemArray<4, TYPE>;
TIDEWATCH_ARRAYS_OF(Geom::PhysicalSpace::point)
TIDEWATCH_ARRAYS_OF(Geom::PhysicalSpace::vector)
TIDEWATCH_ARRAYS_OF(Element::FixedDoubles)
TIDEWATCH_ARRAYS_OF(Geom::PhysicalSpace::bivector)
TIDEWATCH_ARRAYS_OF(Element::FloatBivector)
TIDEWATCH_ARRAYS_OF(Element::Color)
TIDEWATCH_ARRAYS_OF(float)
TIDEWATCH_ARRAYS_OF(double)
TIDEWATCH_ARRAYS_OF(long double)
TIDEWATCH_ARRAYS_OF(signed char)
TIDEWATCH_ARRAYS_OF(unsigned char)
TIDEWATCH_ARRAYS_OF(short)
TIDEWATCH_ARRAYS_OF(unsigned short)
TIDEWATCH_ARRAYS_OF(int)
TIDEWATCH_ARRAYS_OF(unsigned int)
TIDEWATCH_ARRAYS_OF(long long)
TIDEWATCH_ARRAYS_OF(unsigned long long)
#undef TIDEWATCH_ARRAYS_OF

} // namespace Sheaf
