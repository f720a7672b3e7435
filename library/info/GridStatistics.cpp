// SPDX-License-Identifier: Apache-2.0
#include "library/info/GridStatistics.hpp"

#include "convlib/ReferenceVertices.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cmath>
#include <concepts>
#include <cstddef>
#include <map>
#include <optional>
#include <type_traits>
#include <utility>

namespace Tidewatch {

namespace {

using Range = GridStatistics::Range;

void take(Range& range, long double lowest, long double highest, std::uint64_t values) {
    if (range.values == 0 || lowest < range.lowest)
        range.lowest = lowest;
    if (range.values == 0 || highest > range.highest)
        range.highest = highest;
    range.values += values;
}

/// The names of an element's components: of points and vectors x, y and z.
template <class T>
std::string componentName(const std::string& field, std::size_t component) {
    constexpr const char* axes[] = {".x", ".y", ".z"};
    constexpr const char* channels[] = {".red", ".green", ".blue"};
    if constexpr (Sheaf::ElementTraits<T>::componentCount == 1)
        return field;
    else
        return field + (std::is_same_v<T, Sheaf::Element::Color> ? channels : axes)[component];
}

class Survey {
public:
    explicit Survey(GridStatistics& statistics) : statistics_(statistics) {}

    void take(const std::string& field, const Sheaf::MemBase& array) {
        if (const auto* const lattice = dynamic_cast<const Sheaf::UniformCartesianArray*>(&array)) {
            takeLattice(field, *lattice);
            return;
        }
        Sheaf::visitElementType(array.elementType(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (const auto* const typed = dynamic_cast<const Sheaf::TypedArray<T>*>(&array))
                takeValues(field, typed->base_vector());
        });
    }

private:
    Range& range(const std::string& name) {
        const auto [place, isNew] = places_.try_emplace(name, statistics_.ranges.size());
        if (isNew)
            statistics_.ranges.push_back({name});
        return statistics_.ranges[place->second];
    }

    void takeLattice(const std::string& field, const Sheaf::UniformCartesianArray& lattice) {
        Geom::BoundingBox box;
        lattice.expand(box);
        if (box.empty())
            return;
        const auto takeRange = [values = lattice.extents().elementCount().value_or(0)](auto& of, double lower,
                                                                                       double upper) {
            Tidewatch::take(of, static_cast<long double>(lower), static_cast<long double>(upper), values);
        };
        takeRange(range(field + ".x"), box.lower().x, box.upper().x);
        takeRange(range(field + ".y"), box.lower().y, box.upper().y);
        takeRange(range(field + ".z"), box.lower().z, box.upper().z);
    }

    template <class T>
    void takeValues(const std::string& field, const std::vector<T>& values) {
        using Component = typename Sheaf::ElementTraits<T>::Component;
        constexpr std::size_t components = Sheaf::ElementTraits<T>::componentCount;
        for (std::size_t component = 0; component < components; ++component) {
            Range& range = this->range(componentName<T>(field, component));
            range.isWhole = std::integral<Component>;
            range.isFloat = std::is_same_v<Component, float>;
            Component lowest{};
            Component highest{};
            std::uint64_t number = 0;
            for (const T& element : values) {
                const Component value = reinterpret_cast<const Component*>(&element)[component];
                if constexpr (std::floating_point<Component>) {
                    if (!std::isfinite(value)) {
                        ++range.notFinite;
                        continue;
                    }
                }
                if (number == 0 || value < lowest)
                    lowest = value;
                if (number == 0 || value > highest)
                    highest = value;
                ++number;
            }
            if (number != 0)
                Tidewatch::take(range, static_cast<long double>(lowest), static_cast<long double>(highest),
                                number);
        }
        if constexpr (std::is_same_v<T, unsigned char>) {
            if (field == "Classification")
                count(statistics_.classes, values);
            else if (field == "ReturnNumber")
                count(statistics_.returns, values);
        }
    }

    static void count(std::array<std::uint64_t, 256>& counts, const std::vector<unsigned char>& values) {
        for (const unsigned char value : values)
            ++counts[value];
    }

    GridStatistics& statistics_;
    std::map<std::string, std::size_t> places_;
};

} // namespace

GridStatistics GridStatistics::of(const Sheaf::Grid& grid, const Anchor::StrongPtr<Progress>& progress,
                                  std::uint64_t pointsBefore) {
    GridStatistics statistics;
    const auto reference = ConvLib::findReferenceVertices(grid);
    if (!reference.representation)
        return statistics;
    Survey survey(statistics);
    // Fragment after fragment, since a reader may decode all fields of one together.
    const Sheaf::Field& positions = *reference.representation->Positions();
    for (const auto& fragment : positions.getFragmentIDs()) {
        const auto extents = positions.getCreator(fragment)->extents();
        const std::uint64_t points = extents ? extents->elementCount().value_or(0) : 0;
        if (progress)
            progress->piece(static_cast<double>(pointsBefore), static_cast<double>(points));
        pointsBefore += points;
        reference.representation->forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
            if (progress)
                progress->check();
            const auto creator = field.getCreator(fragment);
            if (!creator)
                return true;
            const auto made = creator->create(false);
            if (const auto array = Anchor::dynamicCast<Sheaf::MemBase>(made))
                survey.take(id.name(), *array);
            return true;
        });
    }
    return statistics;
}

} // namespace Tidewatch
