// SPDX-License-Identifier: Apache-2.0
#include "las/LasPlan.hpp"

#include "convlib/ReferenceVertices.hpp"
#include "las/CaptureSlots.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "las/LasLayout.hpp"
#include "las/lasHeader.hpp"
#include "las/lasRules.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace ExportLib {

namespace {

using FragmentID = Anchor::StrongPtr<Sheaf::FragmentID>;

LasPlan::Content contentOf(const Sheaf::CreativeArrayBase& positions) {
    const auto data = positions.available();
    if (!data)
        return LasPlan::Content::KnownWhenRead;
    return Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data) ? LasPlan::Content::Lattice
                                                                   : LasPlan::Content::Points;
}

class Planner {
public:
    Planner(LasPlan& plan, const Sheaf::Grid& grid, const LasSettings& settings,
            const std::function<bool(const std::string&)>& useField)
        : plan_(plan),
          grid_(grid),
          settings_(settings),
          renames_(settings.renames.empty() ? CaptureSlots::defaultNames() : settings.renames),
          useField_(useField),
          chart_(grid.findCartesianChart(std::string(Sheaf::Grid::standardChart))),
          skeleton_(grid.skeletons().findVertices(-1)) {}

    void run();

private:
    using Captures = std::vector<LasPlan::Capture>;

    void planRecords(const Sheaf::Representation& representation);
    [[nodiscard]] Captures capture(const FragmentID& fragment);
    [[nodiscard]] bool isExtra(const std::string& field) const;
    [[nodiscard]] std::vector<Sheaf::Field::Creator> extrasOf(const FragmentID& fragment) const;
    bool admit(const LasPlan::Capture& one, Captures& captures);
    void lose(const std::string& field, std::string reason, bool latestVersionKeepsIt = false);
    void findLeftovers();
    [[nodiscard]] std::string whyNoRoom(const std::string& attribute) const;
    [[nodiscard]] std::string whyNoPositions() const;

    LasPlan& plan_;
    const Sheaf::Grid& grid_;
    const LasSettings& settings_;
    std::map<std::string, std::string> renames_;
    const std::function<bool(const std::string&)>& useField_;
    Anchor::StrongPtr<Sheaf::BaseSpace> chart_;
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton_;
    std::set<std::string> carried_;
    std::map<std::string, LasPlan::LeftOut> lost_;
};

void Planner::run() {
    const ConvLib::ReferenceVertices reference = ConvLib::findReferenceVertices(grid_);
    plan_.obstacle = ConvLib::whyNoReference(reference);
    if (!reference.representation)
        return;
    const auto positions = reference.representation->Positions();
    if (positions->getFragmentIDs().empty()) {
        plan_.obstacle = "its Positions hold no data";
        return;
    }
    planRecords(*reference.representation);
    for (const FragmentID& id : positions->getFragmentIDs()) {
        LasPlan::Fragment fragment;
        fragment.name = tileName(id);
        fragment.file = lasFileName(settings_.outputPath, id, settings_.tiles, settings_.uncompressed);
        fragment.positions = positions->getCreator(id);
        fragment.content = contentOf(*fragment.positions);
        fragment.points = pointCount(*fragment.positions);
        fragment.captures = capture(id);
        fragment.extras = extrasOf(id);
        const bool hasPositions =
            std::any_of(fragment.captures.begin(), fragment.captures.end(),
                        [](const LasPlan::Capture& one) { return one.attribute == "Positions"; });
        if (!hasPositions)
            fragment.obstacle = whyNoPositions();
        plan_.fragments.push_back(std::move(fragment));
    }
    findLeftovers();
}

void Planner::planRecords(const Sheaf::Representation& representation) {
    auto layout = LasLayout::of(grid_, representation, settings_, renames_, useField_);
    if (!layout) {
        plan_.obstacle = "LAS 1." + std::to_string(settings_.version) + " is not written";
        const RecordRoom room = roomOfRecords(grid_, representation);
        plan_.hasColors = room.colors;
        plan_.hasReflectance = room.reflectance;
        plan_.hasAmplitude = room.amplitude;
        return;
    }
    plan_.hasColors = layout->hasColors;
    plan_.hasReflectance = layout->reflectanceStart.has_value();
    plan_.hasAmplitude = layout->amplitudeStart.has_value();
    plan_.hasNearInfrared = layout->hasNearInfrared;
    plan_.pointFormat = layout->pointFormat;
    plan_.hasGpsTime = hasGpsTime(layout->pointFormat);
    plan_.extras = std::move(layout->extras);
    plan_.records = layout->records.size();
    plan_.recordsLeftOut = std::move(layout->recordsLeftOut);
    plan_.notes = std::move(layout->notes);
    for (const LasPlan::ExtraBytes& extra : plan_.extras)
        carried_.insert(extra.field);
    for (const auto& [field, reason] : layout->withoutRoom)
        lose(field, reason);
}

Planner::Captures Planner::capture(const FragmentID& fragment) {
    Captures captures;
    if (!skeleton_)
        return captures;
    captureFields(
        grid_, chart_, skeleton_, fragment, useField_, [](const Sheaf::Field::Creator& data) { return data; },
        [&](const std::string& field) { return attributeOf(renames_, field); },
        [&](const std::string& attribute, const std::string& field, const Sheaf::Field::Creator& data) {
            if (CaptureSlots::isAttribute(attribute, settings_.carry) && !isExtra(field) &&
                admit({attribute, field, data}, captures))
                carried_.insert(field);
        },
        [&](const std::string& field) {
            // The same field in another chart, or another field has been renamed to it.
            const auto known = std::find_if(captures.begin(), captures.end(),
                                            [&](const auto& one) { return one.attribute == field; });
            if (known != captures.end() && known->field != field)
                lose(field, known->field + " takes its place");
        });
    return captures;
}

bool Planner::isExtra(const std::string& field) const {
    return std::any_of(plan_.extras.begin(), plan_.extras.end(),
                       [&](const LasPlan::ExtraBytes& extra) { return extra.field == field; });
}

std::vector<Sheaf::Field::Creator> Planner::extrasOf(const FragmentID& fragment) const {
    std::vector<Sheaf::Field::Creator> creators;
    for (const LasPlan::ExtraBytes& extra : plan_.extras) {
        const auto field = grid_.getField(chart_, extra.field, skeleton_);
        creators.push_back(field ? field->getCreator(fragment) : nullptr);
    }
    return creators;
}

/// Whether the values of a field reach the file.
bool Planner::admit(const LasPlan::Capture& one, Captures& captures) {
    const std::type_info& type = one.data->elementType();
    const auto slot = CaptureSlots::slotOf(one.attribute, type, settings_.carry);
    if (!slot) {
        std::string types;
        for (const std::type_info* const taken : CaptureSlots::elementTypes(one.attribute, settings_.carry))
            types.append(types.empty() ? "" : " or ").append(Sheaf::elementTypeName(*taken));
        lose(one.field,
             "it is stored as " + std::string(Sheaf::elementTypeName(type)) + ", LAS takes " + types);
        return false;
    }
    const auto inSlot = [&](std::size_t number) {
        return std::find_if(captures.begin(), captures.end(), [&](const LasPlan::Capture& before) {
            return before.attribute == one.attribute &&
                   CaptureSlots::slotOf(before.attribute, before.data->elementType(), settings_.carry) ==
                       number;
        });
    };
    const auto replace = [&](const std::string& loser, const std::string& winner) {
        carried_.erase(loser);
        lose(loser, winner + " takes its place");
    };
    if (const auto first = inSlot(0); *slot != 0 && first != captures.end()) {
        replace(one.field, first->field);
        return false;
    }
    if (const auto second = inSlot(1); *slot == 0 && second != captures.end())
        replace(second->field, one.field);
    if (const auto before = inSlot(*slot); before != captures.end()) {
        replace(before->field, one.field);
        *before = one;
    } else {
        captures.push_back(one);
    }
    if (std::string reason = whyNoRoom(one.attribute); !reason.empty()) {
        lose(one.field, std::move(reason), one.attribute == "GPSTime");
        return false;
    }
    return true;
}

/// Keeps the first reason.
void Planner::lose(const std::string& field, std::string reason, bool latestVersionKeepsIt) {
    lost_.try_emplace(field, LasPlan::LeftOut{std::move(reason), latestVersionKeepsIt});
}

/// Why records have no room for an attribute; empty if they have.
std::string Planner::whyNoRoom(const std::string& attribute) const {
    if (attribute == "GPSTime" && !plan_.hasGpsTime)
        return "points with colours have no GPS time in LAS 1." + std::to_string(settings_.version);
    const bool isMissing = (attribute == "RGB" && !plan_.hasColors) ||
                           (attribute == "Reflectance" && !plan_.hasReflectance) ||
                           (attribute == "Amplitude" && !plan_.hasAmplitude);
    return isMissing ? "files have room for " + attribute + " only where a field is named so" : std::string();
}

std::string Planner::whyNoPositions() const {
    if (!useField_("Positions"))
        return "the field filter leaves out its Positions";
    const auto inChart = chart_ ? grid_.getField(chart_, "Positions", skeleton_) : nullptr;
    return inChart ? "it has no position stored as a point"
                   : "its Positions are not in the chart " + std::string(Sheaf::Grid::standardChart);
}

void Planner::findLeftovers() {
    if (!skeleton_)
        return;
    skeleton_->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        const std::string& name = id.name();
        if (!useField_(name) || carried_.contains(name) || field.getFragmentIDs().empty())
            return true;
        if (const auto lost = lost_.find(name); lost != lost_.end())
            plan_.fieldsLeftOut.insert(*lost);
        else if (CaptureSlots::isAttribute(attributeOf(renames_, name), settings_.carry))
            plan_.fieldsLeftOut.try_emplace(name,
                                            LasPlan::LeftOut{"it has no data for the points in the chart " +
                                                             std::string(Sheaf::Grid::standardChart)});
        else
            plan_.unknownFields.insert(name);
        return true;
    });
}

} // namespace

LasSettings LasSettings::of(const ExportPointCloudToLas& exporter) {
    LasSettings settings;
    settings.version = exporter.Version;
    settings.tiles = exporter.tiles;
    settings.uncompressed = exporter.uncompressed;
    settings.pointSourceID = exporter.PointSourceID;
    settings.renames = exporter.RenameMap;
    settings.outputPath = exporter.OutputPath;
    settings.carry = exporter.Carry();
    settings.conforming = exporter.Conforming();
    settings.step = exporter.Step();
    settings.offset = exporter.Offset();
    return settings;
}

std::uint64_t LasPlan::points() const noexcept {
    std::uint64_t all = 0;
    for (const Fragment& fragment : fragments)
        all += fragment.points;
    return all;
}

std::set<std::string> LasPlan::fieldsRead() const {
    // The box of the grid is that of its positions, whatever attribute they become.
    std::set<std::string> fields{"Positions"};
    for (const Fragment& fragment : fragments) {
        for (const Capture& capture : fragment.captures)
            fields.insert(capture.field);
    }
    for (const ExtraBytes& extra : extras)
        fields.insert(extra.field);
    return fields;
}

LasPlan LasPlan::of(const Sheaf::Grid& grid, const LasSettings& settings,
                    const std::function<bool(const std::string&)>& useField) {
    LasPlan plan;
    Planner(plan, grid, settings, useField).run();
    return plan;
}

std::vector<std::string> LasPlan::attributes(bool carry) {
    return CaptureSlots::names(carry);
}

std::vector<const std::type_info*> LasPlan::elementTypes(const std::string& attribute, bool carry) {
    return CaptureSlots::elementTypes(attribute, carry);
}

} // namespace ExportLib
