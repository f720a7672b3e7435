// SPDX-License-Identifier: Apache-2.0
#include "capture/captureArray.hpp"

#include "sheaf/TypedArray.hpp"

namespace ExportLib {

template <class T>
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

template TIDEWATCH_API void
captureArray(std::vector<Geom::PhysicalSpace::point>& out,
             const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);
template TIDEWATCH_API void
captureArray(std::vector<unsigned short>& out,
             const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);

} // namespace ExportLib
