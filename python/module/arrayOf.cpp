// SPDX-License-Identifier: Apache-2.0
#include "python/module/arrayOf.hpp"

#include "anchor/Error.hpp"
#include "python/module/Operation.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Tidewatch::Python {

namespace {

using Data = Anchor::StrongPtr<Anchor::Cacheable>;
using Point = Sheaf::Element::Point;

template <class T>
py::dtype dtype() {
    // As NumPy names them: of two 64-bit integer types it prefers "long".
    if constexpr (std::is_same_v<T, long long>)
        return py::dtype::of<std::int64_t>();
    else if constexpr (std::is_same_v<T, unsigned long long>)
        return py::dtype::of<std::uint64_t>();
    else
        return py::dtype::of<T>();
}

/// Keeps an array alive as long as Python holds the capsule.
py::capsule keeperOf(const Data& data) {
    return py::capsule(new Data(data), [](void* held) { delete static_cast<Data*>(held); });
}

Data created(const Creator& creator, const std::string& name) {
    Data data = creator->create(false);
    if (!data)
        throw Anchor::ModelError(name + ": there is no array");
    return data;
}

/// Calls `take` with each block of a lattice's positions, in storage order.
template <class Take>
void positionsOf(const Sheaf::UniformCartesianArray& lattice, Take&& take) {
    const Sheaf::Extents& extents = lattice.extents();
    std::vector<Point> row(extents[0]);
    for (std::uint64_t k = 0; k < extents[2]; ++k) {
        for (std::uint64_t j = 0; j < extents[1]; ++j) {
            for (std::uint64_t i = 0; i < extents[0]; ++i)
                row[i] = {lattice.origin().x + static_cast<double>(i) * lattice.spacing().x,
                          lattice.origin().y + static_cast<double>(j) * lattice.spacing().y,
                          lattice.origin().z + static_cast<double>(k) * lattice.spacing().z};
            take(row.data(), row.size());
        }
    }
}

py::array latticePositions(const Sheaf::UniformCartesianArray& lattice) {
    std::vector<py::ssize_t> shape = shapeOf(lattice.extents());
    shape.push_back(3);
    py::array_t<double> result(shape);
    char* place = reinterpret_cast<char*>(result.mutable_data());
    const py::gil_scoped_release released;
    positionsOf(lattice, [&](const Point* points, std::size_t count) {
        std::memcpy(place, points, count * sizeof(Point));
        place += count * sizeof(Point);
    });
    return result;
}

template <class T>
py::array view(const Anchor::StrongPtr<Sheaf::TypedArray<T>>& array, bool isWritable) {
    using Traits = Sheaf::ElementTraits<T>;
    std::vector<py::ssize_t> shape = shapeOf(array->extents());
    if (Traits::componentCount > 1)
        shape.push_back(Traits::componentCount);
    py::array result(dtype<typename Traits::Component>(), std::move(shape), array->base_vector().data(),
                     keeperOf(array));
    if (!isWritable)
        result.attr("setflags")(py::arg("write") = false);
    return result;
}

} // namespace

std::vector<py::ssize_t> shapeOf(const Sheaf::Extents& extents) {
    std::vector<py::ssize_t> shape;
    for (std::size_t axis = extents.rank(); axis-- > 0;)
        shape.push_back(static_cast<py::ssize_t>(extents[axis]));
    if (shape.size() == 3 && shape.front() == 1)
        shape.erase(shape.begin());
    return shape;
}

py::dtype dtypeOf(const std::type_info& elementType) {
    py::object type = py::none();
    Sheaf::visitElementType(elementType, [&](auto tag) {
        type = dtype<typename Sheaf::ElementTraits<typename decltype(tag)::type>::Component>();
    });
    return py::dtype::from_args(type);
}

py::array viewOf(const Creator& creator, const std::string& name) {
    const Data data = perform(py::none(), [&](const auto&) { return created(creator, name); });
    if (const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data))
        return latticePositions(*lattice);
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data);
    py::array result;
    bool isFound = false;
    if (array) {
        Sheaf::visitElementType(array->elementType(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data)) {
                result = view<T>(typed, creator->mayBeEdited());
                isFound = true;
            }
        });
    }
    if (!isFound)
        throw Anchor::ModelError(name + ": the array is of a kind that NumPy has none for");
    return result;
}

py::array joinedOf(const std::vector<Creator>& creators, const std::type_info& elementType,
                   const std::string& name) {
    std::uint64_t stated = 0;
    for (const Creator& creator : creators) {
        if (const auto extents = creator->extents())
            stated += extents->elementCount().value_or(0);
    }
    py::array result;
    Sheaf::visitElementType(elementType, [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Traits = Sheaf::ElementTraits<T>;
        std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(stated)};
        if (Traits::componentCount > 1)
            shape.push_back(Traits::componentCount);
        py::array joined(dtype<typename Traits::Component>(), shape);
        char* const begin = static_cast<char*>(joined.mutable_data());
        const std::uint64_t taken = perform(py::none(), [&](const auto& operation) {
            std::uint64_t elements = 0;
            const auto take = [&](const T* from, std::uint64_t count) {
                if (count > stated - elements)
                    throw Anchor::ModelError(name + ": a fragment has more values than it states");
                if (count != 0)
                    std::memcpy(begin + elements * sizeof(T), from, count * sizeof(T));
                elements += count;
            };
            for (const Creator& creator : creators) {
                operation->check();
                const Data data = created(creator, name);
                if (const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data)) {
                    take(typed->base_vector().data(), typed->base_vector().size());
                    continue;
                }
                const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data);
                if constexpr (std::is_same_v<T, Point>) {
                    if (lattice) {
                        positionsOf(*lattice, take);
                        continue;
                    }
                }
                throw Anchor::ModelError(name + ": a fragment is not of the element type of its field");
            }
            return elements;
        });
        // Of chosen points the most that there can be is stated.
        if (taken < stated)
            joined = joined[py::slice(0, static_cast<py::ssize_t>(taken), 1)].template cast<py::array>().attr(
                "copy")();
        result = std::move(joined);
    });
    return result;
}

} // namespace Tidewatch::Python
