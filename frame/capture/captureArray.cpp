// SPDX-License-Identifier: Apache-2.0
#include "capture/captureArray.hpp"

#include "sheaf/TypedArray.hpp"

namespace ExportLib {

template <Sheaf::ElementType T>
void captureArray(std::vector<T>& out,
                  const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator) {
    if (!creator)
        return;
    const Anchor::StrongPtr<Anchor::Cacheable> data = creator->create(false);
    const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data);
    if (!array)
        return;
    const std::vector<T>& elements = array->chunk()->base_vector();
    out.insert(out.end(), elements.begin(), elements.end());
}

#define TIDEWATCH_CAPTURE(TYPE, NAME, COMPONENT, COUNT)                                                      \
    template TIDEWATCH_API void captureArray(                                                                \
        std::vector<TYPE>& out,                                                                              \
        const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);
TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_CAPTURE)
#undef TIDEWATCH_CAPTURE

} // namespace ExportLib
