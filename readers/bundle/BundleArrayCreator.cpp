// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleArrayCreator.hpp"

#include "anchor/Error.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

namespace Tidewatch {

namespace {

/// The extents of the array, x first: those of the dataset turned round, without the components' axis.
Sheaf::Extents arrayExtents(const Hdf5::Dataset& dataset, std::size_t componentCount,
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
    return Sheaf::Extents(std::vector<std::uint64_t>(extents.rbegin(), extents.rend()));
}

} // namespace

std::optional<std::uint64_t> claimedBytes(const Sheaf::Extents& extents, std::uint64_t elementSize) {
    std::vector<std::uint64_t> counted;
    for (std::size_t axis = 0; axis < extents.rank(); ++axis)
        counted.push_back(std::max<std::uint64_t>(extents[axis], 1));
    return Sheaf::Extents(counted).byteCount(elementSize);
}

Anchor::StrongPtr<BundleArrayCreator> BundleArrayCreator::make(std::shared_ptr<const BundleSource> source,
                                                               const Hdf5::Dataset& dataset,
                                                               const std::type_info* element) {
    const std::type_info& type = element != nullptr ? *element : dataset.number().type();
    Anchor::StrongPtr<BundleArrayCreator> creator;
    Sheaf::visitElementType(type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Traits = Sheaf::ElementTraits<T>;
        if (!dataset.number().holds(typeid(typename Traits::Component)))
            dataset.object().fail("its numbers are " + std::string(dataset.number().name()) +
                                  ", which cannot hold every " + std::string(Traits::name));
        const Sheaf::Extents extents = arrayExtents(dataset, Traits::componentCount, Traits::name);
        const auto bytes = claimedBytes(extents, sizeof(T));
        if (!bytes)
            dataset.object().fail("has extents whose product is beyond all bounds");
        creator = Anchor::StrongPtr<BundleArrayCreator>(
            new BundleArrayCreator(std::move(source), dataset, type, extents, *bytes));
    });
    return creator;
}

BundleArrayCreator::BundleArrayCreator(std::shared_ptr<const BundleSource> source,
                                       const Hdf5::Dataset& dataset, const std::type_info& element,
                                       const Sheaf::Extents& extents, std::uint64_t bytes)
    : CachedCreator(element, extents),
      source_(std::move(source)),
      path_(dataset.object().path()),
      number_(dataset.number()),
      datasetExtents_(dataset.extents()),
      bytes_(bytes) {}

BundleArrayCreator::~BundleArrayCreator() = default;

Sheaf::CachedCreator::Made BundleArrayCreator::make() const {
    source_->tick(0.0);
    const Hdf5::Dataset dataset = openAgain();
    const std::uint64_t most = source_->options.MaximumArrayBytes;
    if (bytes_ > most) {
        const std::string bytes = std::to_string(bytes_) + " bytes";
        dataset.object().fail<Anchor::LimitError>(
            (extents()->elementCount() == 0 ? "has no elements, and yet extents that stand for " + bytes
                                            : "needs " + bytes + " of memory") +
            ", and " + std::to_string(most) + " are allowed");
    }
    Made made;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const Sheaf::Extents shape = *extents();
        std::vector<T> elements;
        try {
            elements.resize(*shape.elementCount());
        } catch (const std::bad_alloc&) {
            dataset.object().fail<Anchor::LimitError>("there is no memory for its " + std::to_string(bytes_) +
                                                      " bytes");
        } catch (const std::length_error&) {
            dataset.object().fail<Anchor::LimitError>("there is no memory for its " + std::to_string(bytes_) +
                                                      " bytes");
        }
        dataset.read(typeid(typename Sheaf::ElementTraits<T>::Component),
                     std::as_writable_bytes(std::span(elements)), most,
                     [this](double share) { source_->tick(share); });
        made.array = Sheaf::makeArray(shape, std::move(elements));
    });
    source_->file.requireUnchanged();
    source_->tick(1.0);
    return made;
}

Hdf5::Dataset BundleArrayCreator::openAgain() const {
    source_->file.requireUnchanged();
    Hdf5::Dataset dataset(source_->file.open(path_));
    if (dataset.number() != number_ || dataset.extents() != datasetExtents_)
        dataset.object().fail("has been changed since the file was opened");
    return dataset;
}

} // namespace Tidewatch
