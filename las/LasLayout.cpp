// SPDX-License-Identifier: Apache-2.0
#include "las/LasLayout.hpp"

#include "formats/las/PointLayout.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "formats/las/records.hpp"
#include "las/CaptureSlots.hpp"
#include "las/lasHeader.hpp"
#include "las/lasRules.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <type_traits>
#include <utility>

namespace ExportLib {

namespace {

namespace Format = Formats::Las;

bool isSame(const Sheaf::FieldEncoding& a, const Sheaf::FieldEncoding& b) {
    return a.name == b.name && a.description == b.description && *a.type == *b.type &&
           a.scale.value_or(1) == b.scale.value_or(1) && a.offset.value_or(0) == b.offset.value_or(0) &&
           a.noData == b.noData;
}

/// The number type of an element type's components in extra bytes, which have no long double.
template <class Component>
const std::type_info& storedType() {
    return typeid(std::conditional_t<std::is_same_v<Component, long double>, double, Component>);
}

class Builder {
public:
    Builder(LasLayout& layout, const Sheaf::Grid& grid, const Sheaf::Representation& reference,
            const LasSettings& settings, const std::map<std::string, std::string>& renames,
            const std::function<bool(const std::string&)>& useField)
        : layout_(layout),
          grid_(grid),
          reference_(reference),
          settings_(settings),
          renames_(renames),
          useField_(useField) {}

    void run();

private:
    void findFields();
    void findField(const std::string& name, const Sheaf::Field& field);
    void chooseFormat();
    void placeAttributes();
    void placeExtras();
    void addExtras(const std::string& name, const Sheaf::Field& field);
    [[nodiscard]] std::string uniqueName(const std::string& wanted);
    void findRecords();

    LasLayout& layout_;
    const Sheaf::Grid& grid_;
    const Sheaf::Representation& reference_;
    const LasSettings& settings_;
    const std::map<std::string, std::string>& renames_;
    const std::function<bool(const std::string&)>& useField_;
    RecordRoom room_{};
    bool hasGpsTime_ = false;
    std::vector<std::pair<std::string, Anchor::StrongPtr<Sheaf::Field>>> others_;
    std::set<std::string> namesInUse_;
};

void Builder::run() {
    room_ = roomOfRecords(grid_, reference_);
    layout_.hasColors = room_.colors;
    if (settings_.carry)
        findFields();
    chooseFormat();
    placeAttributes();
    placeExtras();
    if (settings_.carry)
        findRecords();
}

/// Finds the fields that are carried beyond the contract.
void Builder::findFields() {
    const auto chart = grid_.findCartesianChart(std::string(Sheaf::Grid::standardChart));
    const auto skeleton = grid_.skeletons().findVertices(-1);
    const auto fields = chart && skeleton ? skeleton->representations()(chart) : nullptr;
    if (!fields)
        return;
    fields->forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        const auto field = fields->findField(id.name().c_str());
        if (!field->getFragmentIDs().empty() && useField_(id.name())) {
            findField(id.name(), *field);
            if (!CaptureSlots::isAttribute(attributeOf(renames_, id.name()), true) ||
                keepsOwnEncoding(id.name(), *field))
                others_.emplace_back(id.name(), field);
        }
        return true;
    });
}

void Builder::findField(const std::string& name, const Sheaf::Field& field) {
    const std::string& attribute = attributeOf(renames_, name);
    const bool isTaken = CaptureSlots::slotOf(attribute, field.getElementType(), true).has_value();
    if (attribute == "GPSTime" && isTaken)
        hasGpsTime_ = true;
    if ((attribute == "Red" || attribute == "Green" || attribute == "Blue") && isTaken)
        layout_.hasColors = true;
    if (attribute == "NearInfrared" && isTaken)
        layout_.hasNearInfrared = settings_.isExtended();
    if (keepsOwnEncoding(name, field)) {
        room_.reflectance = room_.reflectance && name != "Reflectance";
        room_.amplitude = room_.amplitude && name != "Amplitude";
    }
}

void Builder::chooseFormat() {
    // LAS 1.4 R15, "Point Data Record Formats".
    if (settings_.isExtended())
        layout_.pointFormat = layout_.hasNearInfrared ? 8 : layout_.hasColors ? 7 : 6;
    else
        layout_.pointFormat = !layout_.hasColors ? 1 : hasGpsTime_ ? 3 : 2;
    layout_.recordLength = Format::pointLayouts.at(layout_.pointFormat).naturalSize;
    // The contract's records of format 2 still have the 8 bytes of a GPS time at the end.
    constexpr std::size_t timeSize = 8;
    if (layout_.pointFormat == 2 && !settings_.conforming)
        layout_.recordLength += timeSize;
}

void Builder::placeAttributes() {
    constexpr std::size_t size = 2;
    std::size_t described = 0;
    const auto place = [&](std::optional<std::size_t>& start, const Sheaf::FieldEncoding& encoding) {
        start = described;
        described += size;
        // See addReflectance() for the undescribed bytes of the contract.
        layout_.recordLength += settings_.conforming ? size : described;
        namesInUse_.insert(encoding.name);
    };
    if (room_.amplitude)
        place(layout_.amplitudeStart, amplitudeEncoding());
    if (room_.reflectance)
        place(layout_.reflectanceStart, reflectanceEncoding());
}

void Builder::placeExtras() {
    for (const auto& [name, field] : others_)
        addExtras(name, *field);
}

void Builder::addExtras(const std::string& name, const Sheaf::Field& field) {
    std::size_t components = 0;
    const std::type_info* type = nullptr;
    Sheaf::visitElementType(field.getElementType(), [&](auto tag) {
        using Traits = Sheaf::ElementTraits<typename decltype(tag)::type>;
        components = Traits::componentCount;
        type = &storedType<typename Traits::Component>();
    });
    Sheaf::FieldEncoding encoding;
    encoding.name = attributeOf(renames_, name);
    encoding.type = type;
    if (components == 1 && field.encoding() && Format::extraBytesTypeOf(*field.encoding()->type) != 0) {
        encoding = *field.encoding();
        if (encoding.name.empty())
            encoding.name = name;
    }
    const std::size_t size = Format::extraBytesSizes.at(Format::extraBytesTypeOf(*encoding.type) - 1U);
    const std::size_t attributes = (layout_.amplitudeStart ? 1U : 0U) + (layout_.reflectanceStart ? 1U : 0U);
    if (layout_.recordLength + components * size > std::numeric_limits<std::uint16_t>::max() ||
        (attributes + layout_.extras.size() + components) * Format::ExtraBytes::entrySize >
            Format::Record::largestPayload) {
        layout_.withoutRoom.emplace(name, "records have no room for more extra bytes");
        return;
    }
    std::vector<std::string> names;
    const std::string base = encoding.name;
    for (std::size_t i = 0; i < components; ++i) {
        const std::size_t start = !layout_.extras.empty()
                                      ? layout_.extras.back().start + layout_.extras.back().size
                                      : 2 * attributes;
        encoding.name = uniqueName(components == 1 ? base : base + "_" + std::to_string(i + 1));
        names.push_back(encoding.name);
        layout_.extras.push_back({name, i, encoding, start, size});
        layout_.recordLength += size;
    }
    if (components > 1)
        layout_.notes.push_back(name + " is stored as extra bytes of one number each: " + names.front() +
                                " to " + names.back());
    else if (names.front() != base)
        layout_.notes.push_back(name + " is named " + names.front() +
                                " in the extra bytes, whose names have 32 bytes and are unique");
}

std::string Builder::uniqueName(const std::string& wanted) {
    std::string name = wanted.substr(0, Format::textSize);
    for (unsigned number = 2; !namesInUse_.insert(name).second; ++number) {
        const std::string suffix = "_" + std::to_string(number);
        name = wanted.substr(0, Format::textSize - suffix.size()) + suffix;
    }
    return name;
}

void Builder::findRecords() {
    for (const Sheaf::FileRecord& record : grid_.statement().records) {
        // The host adds the reference system, since it knows whether it still applies.
        if (Format::isBoundToItsFile(record.userId, record.recordId) ||
            Format::isOfReferenceSystem(record.userId, record.recordId))
            continue;
        switch (placeOfRecord(record, settings_.version)) {
        case RecordPlace::Header:
        case RecordPlace::BehindPoints:
            layout_.records.push_back(record);
            break;
        case RecordPlace::Nowhere:
            layout_.recordsLeftOut.push_back(
                {record.userId, record.recordId,
                 record.userId.size() > Format::Record::userIdSize
                     ? "its user id has more than 16 bytes"
                     : std::to_string(record.bytes.size()) + " bytes are more than it may have"});
            break;
        }
    }
}

LasAxis axisFor(std::size_t axis, double lower, double upper, const LasSettings& settings,
                const Sheaf::FileStatement& statement) {
    const auto centre = [&](double step) {
        const double low = quantizedCorner(lower, step);
        const double high = quantizedCorner(upper, step);
        return std::floor((low + high) / 2);
    };
    const auto fits = [&](double step, double offset) {
        using Number = std::numeric_limits<std::int32_t>;
        return (lower - offset) / step >= Number::min() && (upper - offset) / step <= Number::max();
    };
    const bool isStated = settings.carry && statement.step && statement.offset;
    double step = coordinateStep;
    if (settings.step)
        step = (*settings.step)[axis];
    else if (isStated)
        step = (*statement.step)[axis];
    if (settings.offset)
        return {step, (*settings.offset)[axis]};
    if (isStated && fits(step, (*statement.offset)[axis]))
        return {step, (*statement.offset)[axis]};
    // Steps of the contract, and those that a host sets, are not changed: coordinates that do not fit are
    // reported.
    if (isStated && !settings.step && std::isfinite(lower) && std::isfinite(upper)) {
        while (!fits(step, centre(step)))
            step *= 10;
    }
    return {step, centre(step)};
}

} // namespace

bool keepsOwnEncoding(const std::string& name, const Sheaf::Field& field) {
    return field.encoding() &&
           ((name == "Reflectance" && !isSame(*field.encoding(), reflectanceEncoding())) ||
            (name == "Amplitude" && !isSame(*field.encoding(), amplitudeEncoding())));
}

std::optional<LasLayout> LasLayout::of(const Sheaf::Grid& grid, const Sheaf::Representation& reference,
                                       const LasSettings& settings,
                                       const std::map<std::string, std::string>& renames,
                                       const std::function<bool(const std::string&)>& useField) {
    if (settings.version < 2 || settings.version > 4)
        return std::nullopt;
    LasLayout layout;
    Builder(layout, grid, reference, settings, renames, useField).run();
    return layout;
}

Sheaf::FieldEncoding reflectanceEncoding() {
    return {
        "BSG_Reflectance", "Reflectance between -25:5 [-]", &typeid(unsigned short), reflectanceStep, -25.0,
        std::nullopt};
}

Sheaf::FieldEncoding amplitudeEncoding() {
    return {"Amplitude", "Amplitude between 0:65536 [-]", &typeid(unsigned short), 1.0, 0.0, std::nullopt};
}

std::array<LasAxis, 3> axesFor(const std::array<double, 3>& lower, const std::array<double, 3>& upper,
                               const LasSettings& settings, const Sheaf::FileStatement& statement) {
    std::array<LasAxis, 3> axes{};
    for (std::size_t axis = 0; axis < axes.size(); ++axis)
        axes[axis] = axisFor(axis, lower[axis], upper[axis], settings, statement);
    return axes;
}

RecordPlace placeOfRecord(const Sheaf::FileRecord& record, int version) noexcept {
    if (record.userId.size() > Format::Record::userIdSize)
        return RecordPlace::Nowhere;
    if (record.bytes.size() <= Format::Record::largestPayload)
        return RecordPlace::Header;
    return version == 4 && writesTrailingRecords() ? RecordPlace::BehindPoints : RecordPlace::Nowhere;
}

} // namespace ExportLib
