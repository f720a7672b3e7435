// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleSource.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/BundleFileWalk.hpp"
#include "readers/bundle/arrayOf.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/Extents.hpp"

namespace Tidewatch {

Structure BundleSource::structure(const Tick& tick) {
    return BundleFileWalk(file_, tick).run();
}

std::vector<std::string> BundleSource::read(const Structure::Array& array, ArrayMemory& target,
                                            std::uint64_t most, const Tick& tick) {
    const Hdf5::Dataset dataset(file_.open(array.object));
    const Structure::Array found = arrayOf(dataset, array.element);
    if (found.extents != array.extents)
        dataset.object().fail<Anchor::FileError>("has been changed since the file was opened");
    Sheaf::visitElementName(array.element, [&](auto tag) {
        using T = typename decltype(tag)::type;
        if (Sheaf::Extents(array.extents).byteCount(sizeof(T)) == target.size())
            dataset.read(typeid(typename Sheaf::ElementTraits<T>::Component), target, most, tick);
    });
    return {};
}

} // namespace Tidewatch
