// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasColumn.hpp"

#include "formats/las/extraBytesEntry.hpp"
#include "formats/littleEndian.hpp"
#include "readers/names.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace Layer = Las::Layer;
using Las::ExtraAttribute;
using Las::Point;

template <class Get>
class ColumnOf final : public LasColumn {
public:
    using Value = std::invoke_result_t<const Get&, const Point&>;

    ColumnOf(Get get, std::uint64_t points) : get_(std::move(get)), points_(points) {}

    void begin() override { values_.resize(points_); }

    void take(std::uint64_t first, std::span<const Point> points) override {
        std::transform(points.begin(), points.end(), values_.begin() + static_cast<std::ptrdiff_t>(first),
                       get_);
    }

    [[nodiscard]] Anchor::StrongPtr<Sheaf::MemBase> finish() override {
        return Sheaf::makeArray(std::exchange(values_, {}));
    }

private:
    Get get_;
    std::uint64_t points_;
    std::vector<Value> values_;
};

/// A field whose values are what `get` gives for a point.
template <class Get>
LasField field(std::string name, Las::Layers layers, Get get) {
    using Value = typename ColumnOf<Get>::Value;
    return {std::move(name),
            &typeid(Value),
            sizeof(Value),
            [get](std::uint64_t points) {
                return std::unique_ptr<LasColumn>(std::make_unique<ColumnOf<Get>>(get, points));
            },
            false,
            layers};
}

/// A field whose values are a member of Point, converted to the type that it has in a bundle.
template <class Value, class Member>
LasField memberField(std::string name, Las::Layers layers, Member Point::*member) {
    return field(std::move(name), layers,
                 [member](const Point& point) { return static_cast<Value>(point.*member); });
}

/// Calls visitor(T()) with the element type of a scalar attribute.
template <class Visitor>
LasField visitType(ExtraAttribute::Type type, Visitor&& visitor) {
    switch (type) {
    case ExtraAttribute::Type::UInt8:
        return visitor(static_cast<unsigned char>(0));
    case ExtraAttribute::Type::Int8:
        return visitor(static_cast<signed char>(0));
    case ExtraAttribute::Type::UInt16:
        return visitor(static_cast<unsigned short>(0));
    case ExtraAttribute::Type::Int16:
        return visitor(static_cast<short>(0));
    case ExtraAttribute::Type::UInt32:
        return visitor(0U);
    case ExtraAttribute::Type::Int32:
        return visitor(0);
    case ExtraAttribute::Type::UInt64:
        return visitor(0ULL);
    case ExtraAttribute::Type::Int64:
        return visitor(0LL);
    case ExtraAttribute::Type::Float:
        return visitor(0.0F);
    case ExtraAttribute::Type::Double:
    case ExtraAttribute::Type::Undescribed: // never passed
        break;
    }
    return visitor(0.0);
}

/// A number too large for a float becomes infinite; a plain conversion is undefined in C++.
float toFloat(double value) noexcept {
    constexpr auto largest = static_cast<double>(std::numeric_limits<float>::max());
    if (value > largest)
        return std::numeric_limits<float>::infinity();
    if (value < -largest)
        return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

LasField attributeField(std::string name, const ExtraAttribute& attribute) {
    const bool isSingle = attribute.component == 0;
    const bool isReflectance =
        isSingle && (attribute.name == "Reflectance" || attribute.name == "BSG_Reflectance");
    const bool isScaled = attribute.scale || attribute.shift;
    const bool isAmplitude = isSingle && attribute.name == "Amplitude";
    const bool isPlainAmplitude = isAmplitude && !isScaled && attribute.type == ExtraAttribute::Type::UInt16;
    const double scale = attribute.scale.value_or(1.0);
    const double shift = attribute.shift.value_or(0.0);
    const std::size_t offset = attribute.offset;
    const Las::Layers layers = Las::extraByteLayers(offset, attribute.size);
    return visitType(attribute.type, [&](auto zero) {
        using Raw = decltype(zero);
        const auto raw = [offset](const Point& point) {
            return Formats::loadLittleEndian<Raw>(point.extraBytes + offset);
        };
        const auto scaled = [raw, scale, shift](const Point& point) {
            return static_cast<double>(raw(point)) * scale + shift;
        };
        if (isReflectance || (isAmplitude && !isPlainAmplitude))
            return field(name, layers, [scaled](const Point& point) { return toFloat(scaled(point)); });
        if (isScaled)
            return field(name, layers, scaled);
        return field(name, layers, raw);
    });
}

/// The name of an attribute in its file; components have their number appended.
std::string nameInFile(const ExtraAttribute& attribute) {
    return attribute.component == 0 ? attribute.name
                                    : fmt::format("{}_{}", attribute.name, attribute.component);
}

/// The same, made valid as a field name.
std::string attributeName(const ExtraAttribute& attribute) {
    if (attribute.name.empty())
        return fmt::format("ExtraBytes{}{}", attribute.entry + 1, nameInFile(attribute));
    if (attribute.name == "BSG_Reflectance" && attribute.component == 0)
        return "Reflectance";
    std::string name = nameInFile(attribute);
    std::replace_if(name.begin(), name.end(), std::not_fn(isFitForName), '_');
    if (name == "." || name == "..")
        std::fill(name.begin(), name.end(), '_');
    return name;
}

Sheaf::FieldEncoding encodingOf(const ExtraAttribute& attribute) {
    const auto number = static_cast<std::size_t>(attribute.type) - 1;
    return {nameInFile(attribute), attribute.description, Formats::Las::extraBytesTypes.at(number),
            attribute.scale,       attribute.shift,       attribute.noData};
}

/// A bit of the points' flags, 0 or 1.
LasField flagField(std::string name, Point::Flag flag) {
    return field(std::move(name), Layer::Flags, [flag](const Point& point) {
        return static_cast<unsigned char>((point.flags & flag) != 0 ? 1 : 0);
    });
}

LasField channelField(std::string name, std::size_t channel) {
    return field(std::move(name), Layer::Rgb,
                 [channel](const Point& point) { return static_cast<unsigned short>(point.rgb[channel]); });
}

/// Adds fields of the point format that few programs use.
void addMinorFields(const Las::LasHeader& header, std::vector<LasField>& fields) {
    const std::size_t before = fields.size();
    fields.push_back(flagField("Synthetic", Point::Synthetic));
    fields.push_back(flagField("KeyPoint", Point::KeyPoint));
    fields.push_back(flagField("Withheld", Point::Withheld));
    if (Formats::Las::isExtendedFormat(header.pointFormat)) {
        fields.push_back(flagField("Overlap", Point::Overlap));
        fields.push_back(memberField<unsigned char>("ScannerChannel", Layer::Always, &Point::scannerChannel));
    }
    if (header.layout().rgb != 0) {
        fields.push_back(channelField("Red", 0));
        fields.push_back(channelField("Green", 1));
        fields.push_back(channelField("Blue", 2));
    }
    if (header.layout().nearInfrared != 0)
        fields.push_back(
            memberField<unsigned short>("NearInfrared", Layer::NearInfrared, &Point::nearInfrared));
    for (std::size_t i = before; i < fields.size(); ++i)
        fields[i].isMinor = true;
}

/// Makes names unique. (Searching the fields instead would take quadratic time, and a hostile file chooses
/// their number.)
class UniqueNames {
public:
    [[nodiscard]] std::string operator()(const std::string& wanted) {
        std::string name = wanted;
        while (!taken_.insert(name).second)
            name = fmt::format("{}_{}", wanted, ++lastNumber_.try_emplace(wanted, 1).first->second);
        return name;
    }

private:
    std::unordered_set<std::string> taken_;
    std::unordered_map<std::string, std::size_t> lastNumber_;
};

} // namespace

std::vector<LasField> lasFields(const Las::LasFile& file) {
    const Las::LasHeader& header = file.header();
    std::vector<LasField> fields;
    fields.push_back(field("Positions", Layer::Z, [header](const Point& point) {
        return Geom::PhysicalSpace::point{header.coordinate(0, point.x), header.coordinate(1, point.y),
                                          header.coordinate(2, point.z)};
    }));
    fields.push_back(memberField<unsigned short>("Intensity", Layer::Intensity, &Point::intensity));
    fields.push_back(memberField<unsigned char>("ReturnNumber", Layer::Always, &Point::returnNumber));
    fields.push_back(memberField<unsigned char>("NumberOfReturns", Layer::Always, &Point::numberOfReturns));
    fields.push_back(
        memberField<unsigned char>("Classification", Layer::Classification, &Point::classification));
    fields.push_back(memberField<unsigned char>("ScanDirectionFlag", Layer::Flags, &Point::scanDirection));
    fields.push_back(memberField<unsigned char>("EdgeOfFlightLine", Layer::Flags, &Point::edgeOfFlightLine));
    fields.push_back(memberField<unsigned char>("UserData", Layer::UserData, &Point::userData));
    if (Formats::Las::isExtendedFormat(header.pointFormat))
        fields.push_back(memberField<short>("ScanAngleRank", Layer::ScanAngle, &Point::scanAngle));
    else
        fields.push_back(memberField<signed char>("ScanAngleRank", Layer::ScanAngle, &Point::scanAngle));
    fields.push_back(memberField<unsigned short>("PointSourceID", Layer::PointSource, &Point::pointSourceId));
    if (header.layout().gpsTime != 0)
        fields.push_back(memberField<double>("GPSTime", Layer::GpsTime, &Point::gpsTime));
    if (header.layout().rgb != 0)
        fields.push_back(
            {"RGB", &typeid(Sheaf::Element::Color), sizeof(Sheaf::Element::Color), {}, false, Layer::Rgb});
    addMinorFields(header, fields);
    UniqueNames unique;
    for (const LasField& standard : fields)
        static_cast<void>(unique(standard.name));
    for (const ExtraAttribute& attribute : file.extraAttributes()) {
        if (!attribute.isScalar())
            continue;
        fields.push_back(attributeField(unique(attributeName(attribute)), attribute));
        fields.back().isMinor = true;
        fields.back().encoding = encodingOf(attribute);
    }
    return fields;
}

} // namespace Tidewatch
