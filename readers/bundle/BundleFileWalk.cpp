// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleFileWalk.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/BundleFormat.hpp"
#include "readers/bundle/hdf5/Dataset.hpp"
#include "readers/names.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tidewatch {

namespace {

// The shortest link there can be takes more bytes than this in its group.
constexpr std::uint64_t leastBytesOfLink = 8;

// The walk asks whether to go on each time it has opened so many objects.
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

/// Three finite numbers.
std::array<double, 3> triple(const Hdf5::Object& object, const char* attribute) {
    const auto values = object.numbers(attribute);
    if (!values)
        object.fail(attributeFault(attribute, "is missing"));
    if (values->size() != 3 ||
        !std::all_of(values->begin(), values->end(), [](double value) { return std::isfinite(value); }))
        object.fail(attributeFault(attribute, "is not three finite numbers"));
    return {(*values)[0], (*values)[1], (*values)[2]};
}

/// Three counts; nothing where there is no such attribute.
std::optional<Sheaf::MultiIndex<3>> counts(const Hdf5::Object& object, const char* attribute) {
    const auto values = object.integers<std::uint64_t>(attribute);
    if (!values)
        return std::nullopt;
    if (values->size() != 3)
        object.fail(attributeFault(attribute, "is not three counts"));
    return Sheaf::MultiIndex<3>{(*values)[0], (*values)[1], (*values)[2]};
}

bool isUniform(const Hdf5::Object& object) {
    const auto kind = object.text(BundleFormat::kind);
    if (kind && *kind != BundleFormat::uniformKind)
        object.fail("is of a kind that is not known here: \"" + *kind + "\"");
    return kind.has_value();
}

/// The element type that a field or dataset states; null where it states none.
const std::type_info* statedElement(const Hdf5::Object& object) {
    const auto name = object.text(BundleFormat::element);
    if (!name)
        return nullptr;
    const std::type_info* element = nullptr;
    if (!Sheaf::visitElementName(*name, [&](auto tag) { element = &typeid(typename decltype(tag)::type); }))
        object.fail("has an element type that is not known here: \"" + *name + "\"");
    return element;
}

} // namespace

BundleFileWalk::BundleFileWalk(Sheaf::Bundle& bundle, std::shared_ptr<const BundleSource> source)
    : bundle_(bundle),
      source_(std::move(source)),
      linksLeft_(source_->file.size() / leastBytesOfLink) {}

BundleFileWalk::~BundleFileWalk() {
    if (isDone_)
        return;
    for (const auto& [slice, grid] : addedGrids_)
        slice->removeGrid(grid);
    for (const double time : addedSlices_)
        bundle_.removeSlice(time);
}

void BundleFileWalk::run() {
    const Hdf5::Object root = source_->file.root();
    checkFormat(root);
    const Hdf5::Object slices = root.child(BundleFormat::slices);
    for (const std::string& key : members(slices))
        readSlice(slices.child(key));
    isDone_ = true;
}

void BundleFileWalk::checkFormat(const Hdf5::Object& root) const {
    const auto format = root.text(BundleFormat::formatAttribute);
    if (!format)
        throw Anchor::FormatError(source_->file.path() +
                                  ": is an HDF5 file, but no bundle file (it has no attribute \"format\")");
    if (*format != BundleFormat::formatName)
        root.fail("is no bundle file: its attribute \"format\" is \"" + *format + "\"");
    const std::int64_t version = integer(root, BundleFormat::versionAttribute);
    if (version > BundleFormat::version)
        root.fail("the bundle file has version " + std::to_string(version) +
                  ", which is newer than what this program reads (version " +
                  std::to_string(BundleFormat::version) + ")");
    if (version < 1)
        root.fail("the bundle file has the version " + std::to_string(version) + ", which does not exist");
}

void BundleFileWalk::readSlice(const Hdf5::Object& group) {
    const auto time = group.numbers(BundleFormat::time);
    if (!time)
        group.fail(attributeFault(BundleFormat::time, "is missing"));
    if (time->size() != 1 || !std::isfinite(time->front()))
        group.fail(attributeFault(BundleFormat::time, "is not one finite number"));
    if (!times_.insert(time->front()).second)
        group.fail("two slices have one time");

    const auto existing = bundle_.slices().find(time->front());
    const bool isNew = existing == bundle_.slices().end() || existing->second.expired();
    const auto slice = bundle_.makeSlice(time->front());
    if (isNew)
        addedSlices_.push_back(time->front());
    const auto grids = findGroup(group, BundleFormat::grids);
    if (!grids)
        return;
    for (const std::string& name : namedMembers(*grids, "grid"))
        readGrid(grids->child(name), name, *slice);
}

void BundleFileWalk::readGrid(const Hdf5::Object& group, const std::string& name, Sheaf::Slice& slice) {
    const auto grid = slice.makeGrid(name, source_->file.path());
    addedGrids_.emplace_back(&slice, name);
    if (const auto charts = findGroup(group, BundleFormat::charts))
        readCharts(*charts, *grid);
    if (const auto fragments = findGroup(group, BundleFormat::fragments))
        readFragments(*fragments, *grid);
    const auto skeletons = findGroup(group, BundleFormat::skeletons);
    if (!skeletons)
        return;
    for (const std::string& key : members(*skeletons))
        readSkeleton(skeletons->child(key), *grid);
}

void BundleFileWalk::readCharts(const Hdf5::Object& group, Sheaf::Grid& grid) {
    for (const std::string& name : namedMembers(group, "chart"))
        grid.declareCartesianChart(name);
}

void BundleFileWalk::readFragments(const Hdf5::Object& group, Sheaf::Grid& grid) {
    for (const std::string& name : namedMembers(group, "fragment")) {
        const Hdf5::Object member = group.child(name);
        const auto fragment = grid.makeFragment(name);
        if (const auto low = counts(member, BundleFormat::overlapLow))
            Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::set(*fragment, *low);
        if (const auto high = counts(member, BundleFormat::overlapHigh))
            Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::set(*fragment, *high);
    }
}

void BundleFileWalk::readSkeleton(const Hdf5::Object& group, Sheaf::Grid& grid) {
    Sheaf::Skeleton::Key key;
    key.dimension = narrowInteger(group, BundleFormat::dimension);
    key.refinement =
        group.integers<std::int32_t>(BundleFormat::refinement).value_or(std::vector<std::int32_t>());
    const std::int32_t exclusionMark = narrowInteger(group, BundleFormat::excluded, 0);
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton;
    try {
        skeleton = grid.skeletons().make(key, exclusionMark);
    } catch (const Anchor::ModelError& error) {
        group.fail(error.what());
    }
    const auto representations = findGroup(group, BundleFormat::representations);
    if (!representations)
        return;
    for (const std::string& name : namedMembers(*representations, "chart")) {
        const auto chart = grid.makeCartesianChart(name, 0);
        readRepresentation(representations->child(name), grid, *skeleton->representations().make(chart));
    }
}

void BundleFileWalk::readRepresentation(const Hdf5::Object& group, Sheaf::Grid& grid,
                                        Sheaf::Representation& target) {
    for (const std::string& name : namedMembers(group, "field"))
        readField(group.child(name), name, grid, target);
}

void BundleFileWalk::readField(Hdf5::Object object, const std::string& name, Sheaf::Grid& grid,
                               Sheaf::Representation& target) {
    const std::type_info* element = statedElement(object);
    if (element == nullptr && name == "Positions")
        element = &typeid(Geom::PhysicalSpace::point);

    if (object.isDataset() || isUniform(object)) {
        const auto creator = makeCreator(std::move(object), element);
        target.makeField(name, creator->elementType())->addFragment(nullptr, creator);
        return;
    }

    std::vector<std::pair<std::string, Sheaf::Field::Creator>> pieces;
    for (const std::string& fragment : namedMembers(object, "fragment")) {
        const auto creator = makeCreator(object.child(fragment), element);
        if (!pieces.empty() && pieces.front().second->elementType() != creator->elementType())
            object.fail("its fragments have different number types, and it states no element type");
        pieces.emplace_back(fragment, creator);
    }
    // Without any data there is nothing to tell the type by, and nothing that could be taken for another.
    if (element == nullptr)
        element = pieces.empty() ? &typeid(double) : &pieces.front().second->elementType();
    const auto field = target.makeField(name, *element);
    for (const auto& [fragment, creator] : pieces)
        field->addFragment(grid.makeFragment(fragment), creator);
}

Sheaf::Field::Creator BundleFileWalk::makeCreator(Hdf5::Object object, const std::type_info* element) const {
    if (!object.isGroup())
        return BundleArrayCreator::make(source_, Hdf5::Dataset(std::move(object)), element);
    if (!isUniform(object))
        object.fail("is a group without the attribute \"kind\", where a fragment's data should be");
    if (element != nullptr && *element != typeid(Geom::PhysicalSpace::point))
        object.fail("gives uniform positions to a field of " + std::string(Sheaf::elementTypeName(*element)));
    return makeUniform(object);
}

Sheaf::Field::Creator BundleFileWalk::makeUniform(const Hdf5::Object& group) const {
    const auto origin = triple(group, BundleFormat::origin);
    const auto spacing = triple(group, BundleFormat::spacing);
    if (!std::all_of(spacing.begin(), spacing.end(), BundleFormat::isSpacing))
        group.fail(attributeFault(BundleFormat::spacing, "is not above 0 in every direction"));
    const auto extents = counts(group, BundleFormat::extents);
    if (!extents)
        group.fail(attributeFault(BundleFormat::extents, "is missing"));
    const auto bytes = claimedBytes(Sheaf::Extents(*extents), sizeof(Geom::PhysicalSpace::point));
    if (!bytes)
        group.fail("has extents whose product is beyond all bounds");
    // The lattice itself takes no memory, but whoever goes through its places takes the time, and some the
    // memory, of an array.
    if (*bytes > source_->options.MaximumArrayBytes)
        group.fail<Anchor::LimitError>("stands for " + std::to_string(*bytes) + " bytes of positions, and " +
                                       std::to_string(source_->options.MaximumArrayBytes) + " are allowed");
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{origin[0], origin[1], origin[2]},
        Geom::PhysicalSpace::vector{spacing[0], spacing[1], spacing[2]}, *extents));
}

std::vector<std::string> BundleFileWalk::members(const Hdf5::Object& group) {
    std::vector<std::string> names = group.links(linksLeft_);
    const std::uint64_t before = linksLeft_;
    linksLeft_ -= names.size();
    if (before / linksBetweenTicks != linksLeft_ / linksBetweenTicks)
        source_->tick(0.0);
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
