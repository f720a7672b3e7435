// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleFileWalk.hpp"

#include "anchor/Error.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "readers/bundle/BundleFormat.hpp"
#include "readers/bundle/arrayOf.hpp"
#include "readers/bundle/hdf5/Dataset.hpp"
#include "readers/names.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <utility>

namespace Tidewatch {

namespace {

// Every link takes more bytes than this in its group.
constexpr std::uint64_t minLinkBytes = 8;

// The progress callback is called each time so many objects have been opened.
constexpr std::uint64_t linksBetweenTicks = 64;

std::string attributeFault(const char* attribute, const char* fault) {
    return "attribute \"" + std::string(attribute) + "\" " + fault;
}

std::int64_t integer(const Hdf5::Object& object, const char* attribute,
                     std::optional<std::int64_t> fallback = {}) {
    const auto values = object.integers<std::int64_t>(attribute);
    if (!values && fallback)
        return *fallback;
    if (!values)
        object.fail(attributeFault(attribute, "is missing"));
    if (values->size() != 1)
        object.fail(attributeFault(attribute, "is not one integer"));
    return values->front();
}

std::int32_t narrowInteger(const Hdf5::Object& object, const char* attribute,
                           std::optional<std::int64_t> fallback = {}) {
    const std::int64_t value = integer(object, attribute, fallback);
    if (!std::in_range<std::int32_t>(value))
        object.fail(attributeFault(attribute, "is out of range"));
    return static_cast<std::int32_t>(value);
}

/// Three finite numbers; nothing if there is no such attribute.
std::optional<std::array<double, 3>> findTriple(const Hdf5::Object& object, const char* attribute) {
    const auto values = object.numbers(attribute);
    if (!values)
        return std::nullopt;
    if (values->size() != 3 ||
        !std::all_of(values->begin(), values->end(), [](double value) { return std::isfinite(value); }))
        object.fail(attributeFault(attribute, "is not three finite numbers"));
    return std::array<double, 3>{(*values)[0], (*values)[1], (*values)[2]};
}

/// The same for a required attribute.
std::array<double, 3> triple(const Hdf5::Object& object, const char* attribute) {
    const auto values = findTriple(object, attribute);
    if (!values)
        object.fail(attributeFault(attribute, "is missing"));
    return *values;
}

/// A 16-bit number; nothing if there is no such attribute.
std::optional<std::uint16_t> shortNumber(const Hdf5::Object& object, const char* attribute) {
    const auto values = object.integers<std::uint16_t>(attribute);
    if (!values)
        return std::nullopt;
    if (values->size() != 1)
        object.fail(attributeFault(attribute, "is not one integer"));
    return values->front();
}

/// Three counts; nothing if there is no such attribute.
std::optional<std::array<std::uint64_t, 3>> counts(const Hdf5::Object& object, const char* attribute) {
    const auto values = object.integers<std::uint64_t>(attribute);
    if (!values)
        return std::nullopt;
    if (values->size() != 3)
        object.fail(attributeFault(attribute, "is not three counts"));
    return std::array<std::uint64_t, 3>{(*values)[0], (*values)[1], (*values)[2]};
}

bool isUniform(const Hdf5::Object& object) {
    const auto kind = object.text(BundleFormat::kind);
    if (kind && *kind != BundleFormat::uniformKind)
        object.fail("is of a kind that is not supported: \"" + *kind + "\"");
    return kind.has_value();
}

/// The element type stated by a field or dataset; empty if none is.
std::string statedElement(const Hdf5::Object& object) {
    const auto name = object.text(BundleFormat::element);
    if (name && !Sheaf::visitElementName(*name, [](auto) {}))
        object.fail("has an element type that is not supported: \"" + *name + "\"");
    return name.value_or("");
}

constexpr std::string_view byteName = Sheaf::ElementTraits<unsigned char>::name;
constexpr std::string_view pointName = Sheaf::ElementTraits<Sheaf::Element::Point>::name;

Structure::Piece uniformPiece(const Hdf5::Object& group) {
    Structure::Piece piece;
    piece.lattice = Structure::Lattice{};
    piece.lattice->origin = triple(group, BundleFormat::origin);
    piece.lattice->spacing = triple(group, BundleFormat::spacing);
    if (!std::all_of(piece.lattice->spacing.begin(), piece.lattice->spacing.end(), BundleFormat::isSpacing))
        group.fail(attributeFault(BundleFormat::spacing, "is not above 0 in every direction"));
    const auto extents = counts(group, BundleFormat::extents);
    if (!extents)
        group.fail(attributeFault(BundleFormat::extents, "is missing"));
    piece.array.object = group.path();
    piece.array.element = pointName;
    piece.array.extents.assign(extents->begin(), extents->end());
    return piece;
}

} // namespace

BundleFileWalk::BundleFileWalk(const Hdf5::OpenFile& file, const Source::Tick& tick)
    : file_(file),
      tick_(tick),
      linksLeft_(file.size() / minLinkBytes) {}

Structure BundleFileWalk::run() {
    Structure structure;
    structure.kind = "bundle file";
    const Hdf5::Object root = file_.root();
    checkFormat(root);
    const Hdf5::Object slices = root.child(BundleFormat::slices);
    for (const std::string& key : members(slices))
        structure.slices.push_back(readSlice(slices.child(key)));
    return structure;
}

void BundleFileWalk::checkFormat(const Hdf5::Object& root) const {
    const auto format = root.text(BundleFormat::formatAttribute);
    if (!format)
        throw Anchor::FormatError(
            file_.path() + ": is an HDF5 file, but not a bundle file (it has no attribute \"format\")");
    if (*format != BundleFormat::formatName)
        root.fail("is not a bundle file: its attribute \"format\" is \"" + *format + "\"");
    const std::int64_t version = integer(root, BundleFormat::versionAttribute);
    if (version > BundleFormat::version)
        root.fail("the bundle file has version " + std::to_string(version) +
                  ", which is newer than what this program reads (version " +
                  std::to_string(BundleFormat::version) + ")");
    if (version < 1)
        root.fail("the bundle file has the version " + std::to_string(version) + ", which does not exist");
}

Structure::Slice BundleFileWalk::readSlice(const Hdf5::Object& group) {
    const auto time = group.numbers(BundleFormat::time);
    if (!time)
        group.fail(attributeFault(BundleFormat::time, "is missing"));
    if (time->size() != 1 || !std::isfinite(time->front()))
        group.fail(attributeFault(BundleFormat::time, "is not one finite number"));
    if (!times_.insert(time->front()).second)
        group.fail("two slices have the same time");

    Structure::Slice slice;
    slice.time = time->front();
    if (const auto grids = findGroup(group, BundleFormat::grids)) {
        for (const std::string& name : namedMembers(*grids, "grid"))
            slice.grids.push_back(readGrid(grids->child(name), name));
    }
    return slice;
}

Structure::Grid BundleFileWalk::readGrid(const Hdf5::Object& group, const std::string& name) {
    Structure::Grid grid;
    grid.name = name;
    if (const auto charts = findGroup(group, BundleFormat::charts))
        grid.charts = readCharts(*charts);
    grid.statement = readStatement(group);
    if (const auto fragments = findGroup(group, BundleFormat::fragments))
        grid.fragments = readFragments(*fragments);
    if (const auto skeletons = findGroup(group, BundleFormat::skeletons)) {
        for (const std::string& key : members(*skeletons))
            grid.skeletons.push_back(readSkeleton(skeletons->child(key)));
    }
    return grid;
}

std::vector<Structure::Chart> BundleFileWalk::readCharts(const Hdf5::Object& group) {
    std::vector<Structure::Chart> charts;
    for (const std::string& name : namedMembers(group, "chart")) {
        const Hdf5::Object member = group.child(name);
        charts.push_back(
            {name, member.text(BundleFormat::referenceSystem, BundleFormat::longestReferenceSystem)
                       .value_or(std::string())});
        spend(member, charts.back().referenceSystem.size());
    }
    return charts;
}

Sheaf::FileStatement BundleFileWalk::readStatement(const Hdf5::Object& grid) {
    Sheaf::FileStatement statement;
    statement.step = findTriple(grid, BundleFormat::coordinateStep);
    statement.offset = findTriple(grid, BundleFormat::coordinateOffset);
    using GpsTime = Sheaf::FileStatement::GpsTime;
    if (const auto encoding = grid.text(BundleFormat::gpsTime)) {
        if (*encoding != BundleFormat::gpsTimeOfWeek && *encoding != BundleFormat::gpsTimeAdjusted)
            grid.fail(attributeFault(BundleFormat::gpsTime, "is neither \"week\" nor \"adjusted\""));
        statement.gpsTime = *encoding == BundleFormat::gpsTimeOfWeek ? GpsTime::Week : GpsTime::Adjusted;
    }
    statement.fileSourceId = shortNumber(grid, BundleFormat::fileSourceId);
    statement.systemIdentifier = grid.text(BundleFormat::systemIdentifier);
    spend(grid, propertyBytes(statement));
    if (const auto records = findGroup(grid, BundleFormat::records))
        statement.records = readRecords(*records);
    if (const std::string fault = faultOf(statement); !fault.empty())
        grid.fail(fault);
    return statement;
}

std::vector<Sheaf::FileRecord> BundleFileWalk::readRecords(const Hdf5::Object& group) {
    std::vector<Sheaf::FileRecord> records;
    for (const std::string& key : members(group)) {
        if (records.size() == Structure::mostRecords)
            group.fail("has more than " + std::to_string(Structure::mostRecords) + " records");
        records.push_back(readRecord(group.child(key)));
    }
    return records;
}

Sheaf::FileRecord BundleFileWalk::readRecord(Hdf5::Object object) {
    Sheaf::FileRecord record;
    const auto userId = object.text(BundleFormat::userId);
    const auto recordId = shortNumber(object, BundleFormat::recordId);
    if (!userId || !recordId)
        object.fail("is a record without a user id or a record id");
    record.userId = *userId;
    record.recordId = *recordId;
    record.description = object.text(BundleFormat::description).value_or(std::string());
    spend(object, record.userId.size() + record.description.size());
    const Hdf5::Dataset dataset(std::move(object));
    const Structure::Array array = arrayOf(dataset, std::string(byteName));
    if (dataset.number().type() != typeid(unsigned char) || array.extents.size() != 1)
        dataset.object().fail("is not a list of bytes (uint8)");
    spend(dataset.object(), array.extents.front());
    record.bytes.resize(array.extents.front());
    GivenMemory target(std::as_writable_bytes(std::span(record.bytes)));
    dataset.read(typeid(unsigned char), target, Structure::mostPropertyBytes, tick_);
    return record;
}

std::optional<Sheaf::FieldEncoding> BundleFileWalk::readEncoding(const Hdf5::Object& field) {
    constexpr std::size_t size = Formats::Las::ExtraBytes::entrySize;
    const auto bytes = field.integers<std::uint8_t>(BundleFormat::lasAttribute);
    if (!bytes)
        return std::nullopt;
    spend(field, bytes->size());
    if (bytes->size() != size)
        field.fail(attributeFault(BundleFormat::lasAttribute, "is not the 192 bytes of a description"));
    const auto entry = std::span(*bytes).first<size>();
    if (!Formats::Las::isScalarEntry(entry))
        field.fail(attributeFault(BundleFormat::lasAttribute, "does not describe a number"));
    auto encoding = Formats::Las::decodeExtraBytesEntry<Sheaf::FieldEncoding>(entry);
    if (const std::string fault = faultOf(encoding); !fault.empty())
        field.fail(attributeFault(BundleFormat::lasAttribute, ("says that it " + fault).c_str()));
    return encoding;
}

void BundleFileWalk::spend(const Hdf5::Object& object, std::uint64_t bytes) {
    if (bytes > propertyBytesLeft_)
        object.fail("has more reference systems, records and the like than are read");
    propertyBytesLeft_ -= bytes;
}

std::vector<Structure::Fragment> BundleFileWalk::readFragments(const Hdf5::Object& group) {
    std::vector<Structure::Fragment> fragments;
    for (const std::string& name : namedMembers(group, "fragment")) {
        const Hdf5::Object member = group.child(name);
        fragments.push_back(
            {name, counts(member, BundleFormat::overlapLow), counts(member, BundleFormat::overlapHigh)});
    }
    return fragments;
}

Structure::Skeleton BundleFileWalk::readSkeleton(const Hdf5::Object& group) {
    Structure::Skeleton skeleton;
    skeleton.object = group.path();
    skeleton.dimension = narrowInteger(group, BundleFormat::dimension);
    skeleton.refinement =
        group.integers<std::int32_t>(BundleFormat::refinement).value_or(std::vector<std::int32_t>());
    skeleton.exclusionMark = narrowInteger(group, BundleFormat::excluded, 0);
    const auto representations = findGroup(group, BundleFormat::representations);
    if (!representations)
        return skeleton;
    for (const std::string& name : namedMembers(*representations, "chart")) {
        const Hdf5::Object member = representations->child(name);
        Structure::Representation& representation = skeleton.representations.emplace_back();
        representation.chart = name;
        for (const std::string& field : namedMembers(member, "field"))
            representation.fields.push_back(readField(member.child(field), field));
    }
    return skeleton;
}

Structure::Field BundleFileWalk::readField(Hdf5::Object object, const std::string& name) {
    Structure::Field field;
    field.name = name;
    field.element = statedElement(object);
    field.encoding = readEncoding(object);
    if (field.element.empty() && name == "Positions")
        field.element = pointName;

    if (object.isDataset() || isUniform(object)) {
        field.pieces.push_back(readPiece(std::move(object), field.element));
    } else {
        for (const std::string& fragment : namedMembers(object, "fragment")) {
            field.pieces.push_back(readPiece(object.child(fragment), field.element));
            field.pieces.back().fragment = fragment;
            if (field.pieces.front().array.element != field.pieces.back().array.element)
                object.fail("its fragments have different number types, and it states no element type");
        }
    }
    // Without data the type cannot be derived, and any type will do.
    if (!field.pieces.empty())
        field.element = field.pieces.front().array.element;
    else if (field.element.empty())
        field.element = Sheaf::ElementTraits<double>::name;
    return field;
}

Structure::Piece BundleFileWalk::readPiece(Hdf5::Object object, const std::string& element) const {
    if (!object.isGroup()) {
        Structure::Piece piece;
        piece.array = arrayOf(Hdf5::Dataset(std::move(object)), element);
        return piece;
    }
    if (!isUniform(object))
        object.fail("is a group without the attribute \"kind\", where a fragment's data should be");
    if (!element.empty() && element != pointName)
        object.fail("gives uniform positions to a field of " + element);
    return uniformPiece(object);
}

std::vector<std::string> BundleFileWalk::members(const Hdf5::Object& group) {
    std::vector<std::string> names = group.links(linksLeft_);
    const std::uint64_t before = linksLeft_;
    linksLeft_ -= names.size();
    if (before / linksBetweenTicks != linksLeft_ / linksBetweenTicks)
        tick_(0.0);
    return names;
}

std::vector<std::string> BundleFileWalk::namedMembers(const Hdf5::Object& group, const char* what) {
    std::vector<std::string> names = members(group);
    for (const std::string& name : names) {
        if (const auto fault = nameFault(name); !fault.empty())
            group.fail("the " + std::string(what) + " name \"" + name + "\" " + std::string(fault));
    }
    return names;
}

std::optional<Hdf5::Object> BundleFileWalk::findGroup(const Hdf5::Object& parent, const char* name) const {
    auto group = parent.findChild(name);
    if (group && !group->isGroup())
        group->fail("is not a group");
    return group;
}

} // namespace Tidewatch
