// SPDX-License-Identifier: Apache-2.0
#include "library/points/cellsAsPoints.hpp"

#include "anchor/Error.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "library/points/CellPositions.hpp"
#include "library/points/ChosenCreator.hpp"
#include "library/points/GridBuilder.hpp"
#include "library/points/pointTests.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Lattice = CellPositions::Lattice;
using Masks = std::vector<Anchor::StrongPtr<const FragmentMask>>;

const std::string& cellTypeField() {
    static const std::string name = ExportLib::ExportPointCloudToASCII().FilterField;
    return name;
}

bool isScalar(const std::type_info& type) {
    bool is = false;
    Sheaf::visitElementType(type, [&](auto tag) { is = std::is_arithmetic_v<typename decltype(tag)::type>; });
    return is;
}

/// Converts the lattices of one grid to points.
class CellReader {
public:
    CellReader(const CellOptions& options, std::set<std::string>& fieldsRead,
               const std::function<void()>& mayGoOn, double time, const Sheaf::Grid& from, Sheaf::Grid& to,
               Masks& masks)
        : options_(options),
          fieldsRead_(fieldsRead),
          mayGoOn_(mayGoOn),
          builder_(from, to),
          where_(originAndGrid(from, time)),
          masks_(masks) {}

    void run();

private:
    struct Cells {
        Anchor::StrongPtr<const Lattice> lattice;
        std::shared_ptr<ChosenCreator::Family> family;
        Sheaf::Field::Creator heights;
    };
    using CellsOf = std::map<std::optional<std::string>, Cells>;

    void fill(const Sheaf::Representation& from, Sheaf::Representation& to);
    [[nodiscard]] std::string heightField(const Sheaf::Representation& representation) const;
    [[nodiscard]] Cells cellsOf(const Sheaf::Representation& representation,
                                const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                const Anchor::StrongPtr<Lattice>& lattice);

    const CellOptions& options_;
    std::set<std::string>& fieldsRead_;
    const std::function<void()>& mayGoOn_;
    GridBuilder builder_;
    std::string where_;
    Masks& masks_;
};

void CellReader::run() {
    builder_.build([](const Sheaf::Skeleton&) { return true; },
                   [&](const Sheaf::Skeleton&, const Sheaf::Representation& from, Sheaf::Representation& to) {
                       fill(from, to);
                   });
}

void CellReader::fill(const Sheaf::Representation& from, Sheaf::Representation& to) {
    CellsOf cells;
    if (const auto& positions = from.Positions()) {
        positions->forEachFragment([&](const auto& fragment, const auto& data) {
            if (const auto lattice = Anchor::dynamicCast<Lattice>(data->available()))
                cells.emplace(nameOf(fragment), cellsOf(from, fragment, lattice));
            return true;
        });
    }
    from.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        if (!cells.empty() && id.name() == cellTypeField())
            return true;
        const auto copy = GridBuilder::addField(to, id.name(), field);
        field.forEachFragment([&](const auto& fragment, const auto& data) {
            const auto found = cells.find(nameOf(fragment));
            auto made = data;
            if (found != cells.end()) {
                const Cells& its = found->second;
                if (statedElements(*data) != its.family->mask().elements())
                    throw Anchor::ModelError(fmt::format("{}: {} has {} for {}", where_, id.name(),
                                                         counted(statedElements(*data), "value"),
                                                         counted(its.family->mask().elements(), "cell")));
                if (Anchor::dynamicCast<Lattice>(data->available()))
                    made = Anchor::makeStrong<CellPositions>(
                        its.lattice, Anchor::StrongPtr<const FragmentMask>(&its.family->mask()), its.heights,
                        where_ + ": heights");
                else
                    made = ChosenCreator::make(its.family, data);
            }
            copy->addFragment(builder_.fragment(fragment), std::move(made));
            return true;
        });
        return true;
    });
}

std::string CellReader::heightField(const Sheaf::Representation& representation) const {
    std::vector<std::string> names;
    representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        if (isScalar(field.getElementType()) && id.name() != cellTypeField())
            names.push_back(id.name());
        return true;
    });
    const auto has = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const std::string& wanted = options_.heights;
    if (has(wanted))
        return wanted;
    if (has("Band" + wanted))
        return "Band" + wanted;
    std::size_t number = 0;
    const auto parsed = std::from_chars(wanted.data(), wanted.data() + wanted.size(), number);
    if (parsed.ec == std::errc() && parsed.ptr == wanted.data() + wanted.size() && number >= 1 &&
        number <= names.size())
        return names[number - 1];
    throw Anchor::ModelError(fmt::format("{}: there is no field {} of heights; there {}", where_, wanted,
                                         names.empty()       ? std::string("is none of numbers")
                                         : names.size() == 1 ? "is " + names.front()
                                                             : "are " + joined(names)));
}

CellReader::Cells CellReader::cellsOf(const Sheaf::Representation& representation,
                                      const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                      const Anchor::StrongPtr<Lattice>& lattice) {
    const std::uint64_t places = lattice->extents().elementCount().value_or(0);
    const auto dataOf = [&](const std::string& name) -> Sheaf::Field::Creator {
        const auto& field = representation.findField(name.c_str());
        const auto data = field ? field->getCreator(fragment) : nullptr;
        if (data && (statedElements(*data) != places || !isScalar(data->elementType())))
            throw Anchor::ModelError(
                fmt::format("{}: {} has {} {} values for {}", where_, name, grouped(statedElements(*data)),
                            Sheaf::elementTypeName(data->elementType()), counted(places, "cell")));
        return data;
    };
    const std::string name = heightField(representation);
    const auto heights = dataOf(name);
    if (!heights)
        throw Anchor::ModelError(fmt::format("{}: {} is missing{}", where_, name,
                                             fragment ? " in fragment " + fragment->name() : std::string()));
    fieldsRead_.insert(name);
    const auto ask = [mayGoOn = mayGoOn_](std::size_t place) {
        constexpr std::size_t cellsBetweenQuestions = 65536;
        if (mayGoOn && place % cellsBetweenQuestions == 0)
            mayGoOn();
    };
    const auto test = [ask](Sheaf::Field::Creator data, std::string what, auto admits) -> FragmentMask::Test {
        return [=](ElementSet& chosen) {
            const std::vector<double> values = CellPositions::scalars(*data, chosen.size(), what);
            chosen.narrow([&](std::size_t i) {
                ask(i);
                return admits(values[i]);
            });
        };
    };
    std::vector<FragmentMask::Test> tests{
        test(heights, where_ + ": " + name, [](double height) { return std::isfinite(height); })};
    if (const auto types = dataOf(cellTypeField())) {
        fieldsRead_.insert(cellTypeField());
        tests.push_back(test(types, where_ + ": " + cellTypeField(), [](double type) { return type != 0; }));
    }
    const auto mask = Anchor::makeStrong<FragmentMask>(places, std::move(tests));
    masks_.emplace_back(mask);
    return {lattice, std::make_shared<ChosenCreator::Family>(mask, where_), heights};
}

} // namespace

bool hasCells(const Sheaf::Grid& grid) {
    bool has = false;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        has = item.id.name() == "Positions" && Anchor::dynamicCast<Lattice>(item.data->available());
        return !has;
    });
    return has;
}

ChosenPoints cellsAsPoints(const Sheaf::Bundle& from, const CellOptions& options, const Selection& selection,
                           std::set<std::string>& fieldsRead, const std::function<void()>& mayGoOn) {
    ChosenPoints result;
    result.bundle = rebuilt(from, selection, [&](double time, const Sheaf::Grid& grid, Sheaf::Grid& copy) {
        CellReader(options, fieldsRead, mayGoOn, time, grid, copy, result.masks).run();
    });
    return result;
}

} // namespace Tidewatch
