// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasMapping.hpp"

#include "las/ExportPointCloudToLas.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <typeinfo>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ExportLib::ExportPointCloudToLas;
using Fragment = Anchor::StrongPtr<Sheaf::FragmentID>;

/// An attribute that takes arrays of two element types.
struct Choice {
    std::string_view attribute;
    const std::type_info* first;
    const std::type_info* second;
};
const Choice choices[] = {
    {"ScanAngleRank", &typeid(signed char), &typeid(short)},
    {"Amplitude", &typeid(unsigned short), &typeid(float)},
};

/// The names of the element types that an attribute takes.
std::vector<std::string> acceptedTypes(const std::string& attribute) {
    std::vector<std::string> names;
    Sheaf::ElementTypes::visitFirst(
        [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (ExportPointCloudToLas::Carries(attribute, typeid(T)))
                names.emplace_back(Sheaf::ElementTraits<T>::name);
            return false;
        },
        [](auto) {});
    return names;
}

/// The number of points of an array as the exporter counts, modulo 2^32.
std::uint64_t pointCount(const Sheaf::CreativeArrayBase& creator) {
    const auto extents = Sheaf::getSize(creator);
    if (!extents)
        return 0;
    std::uint32_t count = 1;
    for (std::size_t axis = 0; axis < extents->rank(); ++axis)
        count *= static_cast<std::uint32_t>((*extents)[axis]);
    return count;
}

/// Where the exporter looks for the positions of a grid.
struct Positions {
    Anchor::StrongPtr<Sheaf::Representation> representation;
    Anchor::StrongPtr<Sheaf::Field> field;
    std::string obstacle;
};

Positions findPositions(const Sheaf::Grid& grid) {
    // The conditions, the order and the bound are those that the exporter states.
    const auto skeleton = grid.findHighestHomogenousVertexRefinement(100000000);
    if (!skeleton)
        return {nullptr, nullptr, "it has no vertices of one refinement in all directions"};
    const auto chart = grid.findCartesianChart("");
    const auto representation = chart ? skeleton->representations()(chart) : nullptr;
    const auto field = representation ? representation->findField("Positions") : nullptr;
    if (!field)
        return {nullptr, nullptr, "it has no Positions in its default chart"};
    if (field->getFragmentIDs().empty())
        return {representation, nullptr, "its Positions hold no data"};
    return {representation, field, {}};
}

std::string tileName(const Fragment& fragment) {
    return fragment ? fragment->name() : "Unfragmented";
}

class Mapper {
public:
    Mapper(LasMapping& mapping, const Sheaf::Grid& grid, const LasSettings& settings,
           const std::function<bool(const std::string&)>& useField)
        : mapping_(mapping),
          grid_(grid),
          settings_(settings),
          useField_(useField),
          chart_(grid.findCartesianChart(std::string(Sheaf::Grid::standardChart))),
          skeleton_(grid.skeletons().findVertices(-1)) {}

    void run() {
        const Positions positions = findPositions(grid_);
        mapping_.obstacle = positions.obstacle;
        if (!positions.field)
            return;
        mapping_.hasColors = positions.representation->findField("RGB") != nullptr;
        forEachField([&](const std::string& name, const Sheaf::Field&) {
            mapping_.hasReflectance = mapping_.hasReflectance || name == "Reflectance";
            mapping_.hasAmplitude = mapping_.hasAmplitude || name == "Amplitude";
        });
        for (const Fragment& id : positions.field->getFragmentIDs()) {
            LasMapping::Fragment fragment;
            fragment.name = tileName(id);
            fragment.positions = positions.field->getCreator(id);
            fragment.points = pointCount(*fragment.positions);
            fragment.captures = capture(id);
            const bool hasPositions =
                std::any_of(fragment.captures.begin(), fragment.captures.end(),
                            [](const LasMapping::Capture& one) { return one.attribute == "Positions"; });
            if (!hasPositions)
                fragment.obstacle = whyNoPositions();
            mapping_.fragments.push_back(std::move(fragment));
        }
        findLeftovers();
    }

private:
    template <class Visit>
    void forEachField(Visit visit) const {
        if (!skeleton_)
            return;
        skeleton_->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
            visit(id.name(), field);
            return true;
        });
    }

    std::vector<LasMapping::Capture> capture(const Fragment& id);
    bool admit(const LasMapping::Capture& one, std::vector<LasMapping::Capture>& captures);
    void findLeftovers();
    [[nodiscard]] std::string whyNoRoom(const std::string& attribute) const;
    [[nodiscard]] std::string whyNoPositions() const;

    LasMapping& mapping_;
    const Sheaf::Grid& grid_;
    const LasSettings& settings_;
    const std::function<bool(const std::string&)>& useField_;
    Anchor::StrongPtr<Sheaf::BaseSpace> chart_;
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton_;
    std::set<std::string> carried_;
    std::map<std::string, std::string> reasons_;
};

/// The fields of a fragment as the exporter goes through them.
std::vector<LasMapping::Capture> Mapper::capture(const Fragment& id) {
    std::vector<LasMapping::Capture> captures;
    std::unordered_set<std::string> handled;
    forEachField([&](const std::string& name, const Sheaf::Field&) {
        if (!useField_(name))
            return;
        if (handled.contains(name)) {
            // Seen in another chart already, or another field has been given its name.
            const auto known = std::find_if(captures.begin(), captures.end(),
                                            [&](const auto& one) { return one.attribute == name; });
            if (known != captures.end() && known->field != name)
                reasons_.try_emplace(name, fmt::format("{} takes its place", known->field));
            return;
        }
        const auto field = chart_ ? grid_.getField(chart_, name, skeleton_) : nullptr;
        const auto data = field ? field->getCreator(id) : nullptr;
        if (!data)
            return;
        const auto renamed = settings_.renames.find(name);
        const std::string attribute = renamed != settings_.renames.end() ? renamed->second : name;
        handled.insert(attribute);
        if (isLasAttribute(attribute) && admit({attribute, name, data}, captures))
            carried_.insert(name);
    });
    return captures;
}

/// Whether the exporter takes the values of a field for an attribute, and they reach the file.
bool Mapper::admit(const LasMapping::Capture& one, std::vector<LasMapping::Capture>& captures) {
    const std::type_info& type = one.data->elementType();
    if (!ExportPointCloudToLas::Carries(one.attribute, type)) {
        reasons_.try_emplace(one.field,
                             fmt::format("it is stored as {}, LAS takes {}", Sheaf::elementTypeName(type),
                                         joined(acceptedTypes(one.attribute), " or ")));
        return false;
    }
    const auto find = [&](const std::type_info& other) {
        return std::find_if(captures.begin(), captures.end(), [&](const LasMapping::Capture& before) {
            return before.attribute == one.attribute && before.data->elementType() == other;
        });
    };
    const auto lose = [&](const std::string& loser, const std::string& winner) {
        carried_.erase(loser);
        reasons_.try_emplace(loser, fmt::format("{} takes its place", winner));
    };
    // An array of the first choice wins, whichever comes first.
    const auto* const choice = std::find_if(std::begin(choices), std::end(choices), [&](const Choice& each) {
        return each.attribute == one.attribute;
    });
    if (choice != std::end(choices) && type == *choice->second) {
        if (const auto first = find(*choice->first); first != captures.end()) {
            lose(one.field, first->field);
            return false;
        }
    }
    if (choice != std::end(choices) && type == *choice->first) {
        if (const auto second = find(*choice->second); second != captures.end())
            lose(second->field, one.field);
    }
    const auto before = find(type);
    if (before != captures.end()) {
        lose(before->field, one.field);
        *before = one;
    } else {
        captures.push_back(one);
    }
    if (const std::string reason = whyNoRoom(one.attribute); !reason.empty()) {
        reasons_.try_emplace(one.field, reason);
        return false;
    }
    return true;
}

/// Why records have no room for an attribute; empty where they have.
std::string Mapper::whyNoRoom(const std::string& attribute) const {
    if (attribute == "GPSTime" && !mapping_.hasGpsTime(settings_))
        return fmt::format("points with colours have no GPS time in LAS 1.{}; --las-version 1.4 keeps it",
                           settings_.version);
    const bool isMissing = (attribute == "RGB" && !mapping_.hasColors) ||
                           (attribute == "Reflectance" && !mapping_.hasReflectance) ||
                           (attribute == "Amplitude" && !mapping_.hasAmplitude);
    return isMissing ? fmt::format("files have room for {} only where a field is named so", attribute)
                     : std::string();
}

std::string Mapper::whyNoPositions() const {
    if (!useField_("Positions"))
        return "the field filter leaves out its Positions";
    const auto inChart = chart_ ? grid_.getField(chart_, "Positions", skeleton_) : nullptr;
    return inChart ? "it has no position stored as a point"
                   : fmt::format("its Positions are not in the chart {}", Sheaf::Grid::standardChart);
}

void Mapper::findLeftovers() {
    forEachField([&](const std::string& name, const Sheaf::Field& field) {
        if (!useField_(name) || carried_.contains(name) || field.getFragmentIDs().empty())
            return;
        if (const auto reason = reasons_.find(name); reason != reasons_.end())
            mapping_.fieldsLeftOut.insert(*reason);
        else if (const auto renamed = settings_.renames.find(name);
                 isLasAttribute(renamed != settings_.renames.end() ? renamed->second : name))
            mapping_.fieldsLeftOut.try_emplace(
                name,
                fmt::format("it has no data for the points in the chart {}", Sheaf::Grid::standardChart));
        else
            mapping_.unknownFields.insert(name);
    });
}

} // namespace

std::uint64_t LasMapping::points() const noexcept {
    std::uint64_t all = 0;
    for (const Fragment& fragment : fragments)
        all += fragment.points;
    return all;
}

LasMapping LasMapping::of(const Sheaf::Grid& grid, const LasSettings& settings,
                          const std::function<bool(const std::string&)>& useField) {
    LasMapping mapping;
    Mapper(mapping, grid, settings, useField).run();
    return mapping;
}

std::vector<std::string> LasMapping::tileNames(const Sheaf::Grid& grid) {
    std::vector<std::string> names;
    const Positions positions = findPositions(grid);
    if (!positions.field)
        return names;
    for (const auto& id : positions.field->getFragmentIDs()) {
        const auto data = positions.field->getCreator(id)->available();
        if (!Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data))
            names.push_back(tileName(id));
    }
    return names;
}

std::vector<std::string> lasAttributes() {
    std::vector<std::string> names;
    for (const auto& [field, attribute] : ExportPointCloudToLas::DefaultRenameMap())
        names.push_back(attribute);
    // These need no entry in the map.
    names.insert(names.end(), {"Reflectance", "Amplitude"});
    return names;
}

bool isLasAttribute(const std::string& name) {
    static const std::vector<std::string> names = lasAttributes();
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace Tidewatch
