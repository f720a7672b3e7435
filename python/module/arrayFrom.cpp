// SPDX-License-Identifier: Apache-2.0
#include "python/module/arrayFrom.hpp"

#include "las/LasPlan.hpp"
#include "python/module/errors.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

namespace Tidewatch::Python {

namespace {

/// Fields of lattices that exporters look for, beside the attributes of points.
constexpr const char* cellTypeField = "CellType";

/// The number types that arrays of NumPy and fields have in common: kind and size in NumPy, type in C++.
using Numbers = Sheaf::TypeList<signed char, unsigned char, short, unsigned short, int, unsigned int,
                                long long, unsigned long long, float, double, long double>;

template <class T>
constexpr char kindOf = std::is_floating_point_v<T> ? 'f'
                        : std::is_signed_v<T>       ? 'i'
                                                    : 'u';

/// Calls visitor(TypeTag<T>()) with the number type of a dtype; false if there is none.
template <class Visitor>
bool visitNumber(const py::dtype& type, Visitor&& visitor) {
    const char kind = type.kind();
    const auto size = static_cast<std::size_t>(type.itemsize());
    return Numbers::visitFirst(
        [&](auto tag) {
            using T = typename decltype(tag)::type;
            return kindOf<T> == kind && sizeof(T) == size;
        },
        visitor);
}

template <class To, class From>
bool fits(From value) noexcept {
    if constexpr (std::is_same_v<To, From>) {
        return true;
    } else if constexpr (std::is_integral_v<To> && std::is_integral_v<From>) {
        return std::in_range<To>(value);
    } else if constexpr (std::is_integral_v<To>) {
        // Powers of two, which every floating-point type holds exactly.
        const From above = std::ldexp(From(1), std::numeric_limits<To>::digits);
        const From least = std::is_signed_v<To> ? -above : From(0);
        return value >= least && value < above && value == std::trunc(value);
    } else if constexpr (std::is_integral_v<From>) {
        return static_cast<long double>(static_cast<To>(value)) == static_cast<long double>(value);
    } else if constexpr (sizeof(To) < sizeof(From)) {
        return !std::isfinite(value) || (value <= From(std::numeric_limits<To>::max()) &&
                                         value >= From(std::numeric_limits<To>::lowest()));
    } else {
        return true;
    }
}

template <class From>
From load(const char* place, bool isSwapped) noexcept {
    std::array<char, sizeof(From)> bytes;
    std::memcpy(bytes.data(), place, bytes.size());
    if (isSwapped)
        std::reverse(bytes.begin(), bytes.end());
    From value;
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
}

/// An array of NumPy for reading without the interpreter's lock.
struct Source {
    const char* data;
    std::vector<std::size_t> shape;
    std::vector<std::ptrdiff_t> strides;
    bool isSwapped;

    /// Whether numbers lie one behind the other.
    [[nodiscard]] bool isContiguous(std::size_t itemSize) const {
        auto next = static_cast<std::ptrdiff_t>(itemSize);
        for (std::size_t axis = shape.size(); axis-- > 0;) {
            if (shape[axis] != 1 && strides[axis] != next)
                return false;
            next *= static_cast<std::ptrdiff_t>(shape[axis]);
        }
        return true;
    }
};

constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

/// Copies `count` numbers from number `first` on. Returns the number of the first one that does not fit, or nowhere.
template <class From, class To>
std::size_t convert(const Source& source, std::size_t first, std::size_t count, To* to) {
    const std::size_t axes = source.shape.size();
    const std::size_t inner = source.shape.back();
    if (count == 0 || inner == 0)
        return nowhere;
    const std::ptrdiff_t stride = source.strides.back();
    std::size_t row = first / inner;
    std::size_t column = first % inner;
    for (std::size_t done = 0; done < count; ++row, column = 0) {
        const char* place = source.data;
        std::size_t rest = row;
        for (std::size_t axis = axes - 1; axis-- > 0;) {
            place += static_cast<std::ptrdiff_t>(rest % source.shape[axis]) * source.strides[axis];
            rest /= source.shape[axis];
        }
        place += static_cast<std::ptrdiff_t>(column) * stride;
        const std::size_t size = std::min(inner - column, count - done);
        for (std::size_t i = 0; i < size; ++i, place += stride) {
            const From value = load<From>(place, source.isSwapped);
            if (!fits<To>(value))
                return first + done + i;
            to[done + i] = static_cast<To>(value);
        }
        done += size;
    }
    return nowhere;
}

template <class T>
using ComponentOf = typename Sheaf::ElementTraits<T>::Component;

/// The elements of an array, or the number of the first value that does not fit.
template <class T>
std::pair<std::vector<T>, std::size_t> elementsOf(const py::dtype& type, const Source& source,
                                                  std::size_t first, std::size_t count) {
    using Component = ComponentOf<T>;
    constexpr std::size_t components = Sheaf::ElementTraits<T>::componentCount;
    std::vector<T> elements;
    std::size_t misfit = nowhere;
    visitNumber(type, [&](auto tag) {
        using From = typename decltype(tag)::type;
        const py::gil_scoped_release released;
        if constexpr (std::is_same_v<From, Component>) {
            if (!source.isSwapped && source.isContiguous(sizeof(From))) {
                const auto* const begin = source.data + first * sizeof(T);
                if (reinterpret_cast<std::uintptr_t>(begin) % alignof(T) == 0) {
                    const T* const place = reinterpret_cast<const T*>(begin);
                    elements.assign(place, place + count);
                    return;
                }
            }
        }
        elements.resize(count);
        std::vector<Component> numbers;
        if constexpr (components == 1) {
            misfit = convert<From>(source, first, count, elements.data());
        } else {
            // In blocks, since an element is not an array of its components.
            constexpr std::size_t block = 8192;
            numbers.resize(block * components);
            for (std::size_t done = 0; done < count && misfit == nowhere; done += block) {
                const std::size_t size = std::min(block, count - done);
                misfit =
                    convert<From>(source, (first + done) * components, size * components, numbers.data());
                std::memcpy(static_cast<void*>(elements.data() + done), numbers.data(), size * sizeof(T));
            }
        }
    });
    return {std::move(elements), misfit};
}

bool isTriple(const std::type_info& type) {
    bool result = false;
    Sheaf::visitElementType(type, [&](auto tag) {
        result = Sheaf::ElementTraits<typename decltype(tag)::type>::componentCount == 3;
    });
    return result;
}

bool hasFloats(const std::type_info& type) {
    bool result = false;
    Sheaf::visitElementType(type, [&](auto tag) {
        result = std::is_floating_point_v<ComponentOf<typename decltype(tag)::type>>;
    });
    return result;
}

/// The element types of a field of this name; none for names that are not known.
std::vector<const std::type_info*> typesByName(const std::string& field) {
    if (field == cellTypeField)
        return {&typeid(unsigned char)};
    return ExportLib::LasPlan::elementTypes(field, true);
}

} // namespace

std::string shapeText(std::span<const std::size_t> shape) {
    std::string text = "(";
    for (std::size_t axis = 0; axis < shape.size(); ++axis)
        text += (axis == 0 ? "" : ", ") + std::to_string(shape[axis]);
    return text + (shape.size() == 1 ? ",)" : ")");
}

std::optional<bool> isTripleByName(const std::string& field) {
    const auto types = typesByName(field);
    return types.empty() ? std::nullopt : std::optional(isTriple(*types.front()));
}

Values::Values(const py::object& values, std::string name) : name_(std::move(name)) {
    const py::module_ numpy = py::module_::import("numpy");
    if (py::isinstance(values, numpy.attr("ma").attr("MaskedArray")) &&
        numpy.attr("ma").attr("is_masked")(values).cast<bool>())
        raise(PyExc_ValueError, name_ +
                                    ": has masked values, and a field has a value for each point; fill them "
                                    "first, or leave those points out");
    array_ = py::reinterpret_borrow<py::array>(numpy.attr("asarray")(values));
    const py::dtype type = array_.dtype();
    if (!visitNumber(type, [](auto) {}))
        raise(PyExc_TypeError,
              name_ + ": values of dtype " + std::string(py::str(static_cast<const py::object&>(type))) +
                  " are not taken; integers of 8 to 64 bits and floating-point numbers of 32 bits "
                  "and more are (astype makes them)");
    isSwapped_ = !type.attr("isnative").cast<bool>();
}

std::vector<std::size_t> Values::shape() const {
    std::vector<std::size_t> shape;
    for (py::ssize_t axis = 0; axis < array_.ndim(); ++axis)
        shape.push_back(static_cast<std::size_t>(array_.shape(axis)));
    return shape;
}

std::string Values::shapeText() const {
    return Python::shapeText(shape());
}

const std::type_info& Values::elementType(bool wantsTriple, const std::string& stated,
                                          const std::type_info* existing) const {
    const std::type_info* own = nullptr;
    const bool floats = array_.dtype().kind() == 'f';
    if (!stated.empty()) {
        if (!Sheaf::visitElementName(stated, [&](auto tag) { own = &typeid(typename decltype(tag)::type); }))
            raise(PyExc_ValueError, name_ + ": there is no element type \"" + stated + "\"");
    }
    if (existing != nullptr) {
        if (own != nullptr && *own != *existing)
            raise(PyExc_ValueError,
                  name_ + ": other fragments hold " + std::string(Sheaf::elementTypeName(*existing)));
        own = existing;
    }
    const auto known = typesByName(name_);
    if (own == nullptr && !known.empty()) {
        // That of the values, if the field takes it; else the first of their kind; else the first.
        own = known.front();
        for (const std::type_info* const type : known) {
            if (hasFloats(*type) == floats && hasFloats(*own) != floats)
                own = type;
        }
        visitNumber(array_.dtype(), [&](auto tag) {
            for (const std::type_info* const type : known) {
                if (*type == typeid(typename decltype(tag)::type))
                    own = type;
            }
        });
    }
    if (own == nullptr && wantsTriple) {
        if (floats && array_.dtype().itemsize() <= static_cast<py::ssize_t>(sizeof(double)))
            own = &typeid(Sheaf::Element::Vector);
        else if (array_.dtype().kind() == 'u' && array_.dtype().itemsize() == 1)
            own = &typeid(Sheaf::Element::Color);
        else
            raise(PyExc_TypeError,
                  name_ + ": triples are of float32, float64 (vectors) or uint8 (colours), not of " +
                      std::string(py::str(static_cast<const py::object&>(array_.dtype()))) +
                      "; a field for each component holds others");
    }
    if (own == nullptr)
        visitNumber(array_.dtype(), [&](auto tag) { own = &typeid(typename decltype(tag)::type); });
    if (isTriple(*own) != wantsTriple)
        raise(PyExc_ValueError, name_ + ": an array of shape " + shapeText() +
                                    (wantsTriple ? " has three numbers for each place, and the field one"
                                                 : " has one number for each place, and the field three"));
    return *own;
}

Anchor::StrongPtr<Sheaf::MemBase> Values::copy(const std::type_info& elementType,
                                               const Sheaf::Extents& extents, std::size_t first) const {
    Source source{static_cast<const char*>(array_.data()), shape(), {}, isSwapped_};
    for (py::ssize_t axis = 0; axis < array_.ndim(); ++axis)
        source.strides.push_back(array_.strides(axis));
    const py::dtype type = array_.dtype();
    Anchor::StrongPtr<Sheaf::MemBase> made;
    std::size_t misfit = nowhere;
    Sheaf::visitElementType(elementType, [&](auto tag) {
        using T = typename decltype(tag)::type;
        auto [elements, place] = elementsOf<T>(type, source, first, extents.elementCount().value_or(0));
        misfit = place;
        if (misfit == nowhere)
            made = Sheaf::makeArray(extents, std::move(elements));
    });
    if (misfit != nowhere) {
        py::object value = array_.attr("flat")[py::int_(misfit)];
        raise(PyExc_ValueError,
              name_ + ": " + std::string(py::str(value)) + ", value " + std::to_string(misfit) +
                  ", does not fit " + std::string(Sheaf::elementTypeName(elementType)) +
                  (hasFloats(elementType) ? "" : ", which holds whole numbers in its range"));
    }
    return made;
}

} // namespace Tidewatch::Python
