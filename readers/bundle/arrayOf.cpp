// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/arrayOf.hpp"

#include "readers/source/claimedBytes.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/Extents.hpp"

#include <span>
#include <string_view>
#include <vector>

namespace Tidewatch {

namespace {

/// The extents of the array, x first: those of the dataset reversed, without the components' axis.
std::vector<std::uint64_t> arrayExtents(const Hdf5::Dataset& dataset, std::size_t componentCount,
                                        std::string_view elementName) {
    std::span<const std::uint64_t> extents = dataset.extents();
    if (componentCount != 1) {
        if (extents.back() != componentCount)
            dataset.object().fail("its last extent is " + std::to_string(extents.back()) + ", and a " +
                                  std::string(elementName) + " has " + std::to_string(componentCount) +
                                  " components");
        extents = extents.first(extents.size() - 1);
    }
    if (extents.empty() || extents.size() > Sheaf::Extents::maximumRank)
        dataset.object().fail("has no extents that an array of " + std::string(elementName) + " could have");
    return {extents.rbegin(), extents.rend()};
}

} // namespace

Structure::Array arrayOf(const Hdf5::Dataset& dataset, const std::string& element) {
    Structure::Array array;
    array.object = dataset.object().path();
    array.element = element.empty() ? std::string(dataset.number().name()) : element;
    Sheaf::visitElementName(array.element, [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Traits = Sheaf::ElementTraits<T>;
        if (!dataset.number().holds(typeid(typename Traits::Component)))
            dataset.object().fail("its numbers are " + std::string(dataset.number().name()) +
                                  ", which cannot hold every " + array.element);
        array.extents = arrayExtents(dataset, Traits::componentCount, Traits::name);
        if (!claimedBytes(array.extents, sizeof(T)))
            dataset.object().fail("has extents whose product exceeds 64 bits");
    });
    return array;
}

} // namespace Tidewatch
