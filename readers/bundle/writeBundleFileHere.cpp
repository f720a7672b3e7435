// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "readers/bundle/BundleFormat.hpp"
#include "readers/bundle/BundleModule.hpp"
#include "readers/bundle/hdf5/NewFile.hpp"
#include "readers/names.hpp"
#include "readers/source/Structure.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

namespace {

using Group = Hdf5::NewFile::Group;
using Attributes = std::vector<Group::Attribute>;
/// The fragments of a grid by name.
using Fragments = std::map<std::string, Anchor::StrongPtr<Sheaf::FragmentID>>;

/// A key that sorts by number: "t000012".
std::string numberedKey(const std::string& letter, std::size_t number) {
    const std::string digits = std::to_string(number);
    return letter + std::string(digits.size() < 6 ? 6 - digits.size() : 0, '0') + digits;
}

/// Calls visit(slice) for every live slice, in order.
template <class Visit>
void forEachSlice(const Sheaf::Bundle& bundle, Visit&& visit) {
    for (const auto& [time, entry] : bundle.slices()) {
        if (const auto slice = entry.lock())
            visit(*slice);
    }
}

/// Calls visit(grid) for every live grid of a slice, in order.
template <class Visit>
void forEachGrid(const Sheaf::Slice& slice, Visit&& visit) {
    for (const auto& [name, entry] : slice.grids()) {
        if (const auto grid = entry.lock())
            visit(*grid);
    }
}

/// Those of the grid, and those that only its fields know: a host may add such.
Fragments fragmentsOf(const Sheaf::Grid& grid) {
    Fragments fragments = grid.fragments();
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& at) {
        if (at.fragment)
            fragments.try_emplace(at.fragment->name(), at.fragment);
        return true;
    });
    return fragments;
}

std::uint64_t countArrays(const Sheaf::Bundle& bundle) {
    std::uint64_t count = 0;
    forEachSlice(bundle, [&](const Sheaf::Slice& slice) {
        forEachGrid(slice, [&](const Sheaf::Grid& grid) {
            grid.skeletons().iterate_all([&](const Sheaf::FieldFragment&) {
                ++count;
                return true;
            });
        });
    });
    return count;
}

/// Writes one bundle.
class BundleFileWriting {
public:
    BundleFileWriting(const Sheaf::Bundle& bundle, const std::string& path,
                      const BundleFileWriteOptions& options)
        : path_(path),
          options_(options),
          total_(countArrays(bundle)) {}

    void writeBundle(const Sheaf::Bundle& bundle, const Group& root);

private:
    void writeSlice(const Sheaf::Slice& slice, const Group& group);
    void writeGrid(const Sheaf::Grid& grid, const Group& group);
    void writeChart(const Sheaf::Grid& grid, const std::string& name, const Group& charts);
    void writeStatement(const Sheaf::FileStatement& statement, const Group& grid);
    void writeRecords(const std::vector<Sheaf::FileRecord>& records, const Group& group) const;
    void writeFragments(const Fragments& fragments, const Group& group) const;
    void writeSkeleton(const Sheaf::Skeleton& skeleton, const Fragments& fragments, const Group& group);
    void writeRepresentation(const Sheaf::Representation& representation, const Fragments& fragments,
                             const Group& group);
    /// Writes a field, the data of fragments aside; returns its group if it may have such data.
    [[nodiscard]] std::optional<Group> beginField(const std::string& name, const Sheaf::Field& field,
                                                  const Group& representation);

    /// Creates an array and writes it as a member of a group, with attributes; false if there is no data.
    [[nodiscard]] bool writeArray(const Sheaf::CreativeArrayBase& creator, const Sheaf::Field& field,
                                  const Group& group, const std::string& name, const Attributes& attributes);
    void writeNumbers(const Sheaf::MemBase& array, const Group& group, const std::string& name,
                      const Attributes& attributes) const;
    [[nodiscard]] Attributes attributesOf(const Sheaf::Field& field, const Group& representation,
                                          const std::string& name);

    /// Sets a text attribute within the limits of the reader.
    void setText(const Group& group, const char* attribute, const std::string& text,
                 std::size_t longest = BundleFormat::longestText) const;
    void requireText(const Group& group, const std::string& name, const std::string& text,
                     std::size_t longest = BundleFormat::longestText) const;
    /// Enforces the reader's limit of bytes beside fields.
    void spend(const Group& group, std::uint64_t bytes);

    /// Adds a member group under a name, which must be valid.
    [[nodiscard]] Group addNamed(const Group& group, const std::string& name, const char* what) const;
    void requireFit(const Group& group, const std::string& name, const char* what) const;
    [[noreturn]] void fail(const Group& group, const std::string& name, const std::string& what) const;
    void tick() const {
        if (options_.Progress)
            options_.Progress(done_, total_);
    }

    const std::string& path_;
    const BundleFileWriteOptions& options_;
    std::uint64_t done_ = 0;
    std::uint64_t total_;
    std::uint64_t propertyBytesLeft_ = Structure::mostPropertyBytes;
};

void BundleFileWriting::writeBundle(const Sheaf::Bundle& bundle, const Group& root) {
    root.setText(BundleFormat::formatAttribute, BundleFormat::formatName);
    root.setNumber(BundleFormat::versionAttribute, std::int32_t{BundleFormat::version});
    const Group slices = root.addGroup(BundleFormat::slices);
    std::size_t number = 0;
    forEachSlice(bundle, [&](const Sheaf::Slice& slice) {
        writeSlice(slice, slices.addGroup(numberedKey("t", number++)));
    });
}

void BundleFileWriting::writeSlice(const Sheaf::Slice& slice, const Group& group) {
    group.setNumber(BundleFormat::time, slice.time());
    const Group grids = group.addGroup(BundleFormat::grids);
    forEachGrid(slice,
                [&](const Sheaf::Grid& grid) { writeGrid(grid, addNamed(grids, grid.name(), "grid")); });
}

void BundleFileWriting::writeGrid(const Sheaf::Grid& grid, const Group& group) {
    const Group charts = group.addGroup(BundleFormat::charts);
    for (const std::string& chart : grid.chartNames())
        writeChart(grid, chart, charts);
    writeStatement(grid.statement(), group);
    const Fragments fragments = fragmentsOf(grid);
    writeFragments(fragments, group.addGroup(BundleFormat::fragments));
    const Group skeletons = group.addGroup(BundleFormat::skeletons);
    std::size_t number = 0;
    grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        writeSkeleton(skeleton, fragments, skeletons.addGroup(numberedKey("s", number++)));
        return true;
    });
}

void BundleFileWriting::writeChart(const Sheaf::Grid& grid, const std::string& name, const Group& charts) {
    const Group member = addNamed(charts, name, "chart");
    const std::string& system = grid.findChart(name)->referenceSystem();
    if (system.empty())
        return;
    setText(member, BundleFormat::referenceSystem, system, BundleFormat::longestReferenceSystem);
    spend(member, system.size());
}

void BundleFileWriting::writeStatement(const Sheaf::FileStatement& statement, const Group& grid) {
    if (const std::string fault = faultOf(statement); !fault.empty())
        fail(grid, BundleFormat::records, "the grid " + fault);
    if (statement.step)
        grid.setNumbers(BundleFormat::coordinateStep, std::span<const double>(*statement.step));
    if (statement.offset)
        grid.setNumbers(BundleFormat::coordinateOffset, std::span<const double>(*statement.offset));
    if (statement.gpsTime)
        grid.setText(BundleFormat::gpsTime, *statement.gpsTime == Sheaf::FileStatement::GpsTime::Week
                                                ? BundleFormat::gpsTimeOfWeek
                                                : BundleFormat::gpsTimeAdjusted);
    if (statement.fileSourceId)
        grid.setNumber(BundleFormat::fileSourceId, *statement.fileSourceId);
    if (statement.systemIdentifier)
        setText(grid, BundleFormat::systemIdentifier, *statement.systemIdentifier);
    spend(grid, propertyBytes(statement));
    if (!statement.records.empty())
        writeRecords(statement.records, grid.addGroup(BundleFormat::records));
}

void BundleFileWriting::writeRecords(const std::vector<Sheaf::FileRecord>& records,
                                     const Group& group) const {
    std::size_t number = 0;
    for (const Sheaf::FileRecord& record : records) {
        const std::string key = numberedKey("", number++);
        requireText(group, key, record.userId);
        requireText(group, key, record.description);
        group.addDataset({key,
                          typeid(unsigned char),
                          {record.bytes.size()},
                          {{BundleFormat::userId, record.userId},
                           {BundleFormat::recordId, record.recordId},
                           {BundleFormat::description, record.description}},
                          options_.Compression},
                         std::as_bytes(std::span(record.bytes)), [this] { tick(); });
    }
}

void BundleFileWriting::setText(const Group& group, const char* attribute, const std::string& text,
                                std::size_t longest) const {
    requireText(group, attribute, text, longest);
    group.setText(attribute, text);
}

void BundleFileWriting::requireText(const Group& group, const std::string& name, const std::string& text,
                                    std::size_t longest) const {
    if (text.find('\0') != std::string::npos)
        fail(group, name, "a text that contains a zero cannot be stored");
    if (text.size() > longest)
        fail(group, name,
             "a text of " + std::to_string(text.size()) + " bytes cannot be stored; the max is " +
                 std::to_string(longest));
}

void BundleFileWriting::spend(const Group& group, std::uint64_t bytes) {
    if (bytes > propertyBytesLeft_)
        fail(group, BundleFormat::records, "there are more records and the like than can be read again");
    propertyBytesLeft_ -= bytes;
}

void BundleFileWriting::writeFragments(const Fragments& fragments, const Group& group) const {
    for (const auto& [name, fragment] : fragments) {
        const Group member = addNamed(group, name, "fragment");
        Sheaf::MultiIndex<3> overlap{};
        if (Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::get(fragment, overlap))
            member.setNumbers(BundleFormat::overlapLow, std::span<const std::uint64_t>(overlap));
        if (Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::get(fragment, overlap))
            member.setNumbers(BundleFormat::overlapHigh, std::span<const std::uint64_t>(overlap));
    }
}

void BundleFileWriting::writeSkeleton(const Sheaf::Skeleton& skeleton, const Fragments& fragments,
                                      const Group& group) {
    group.setNumber(BundleFormat::dimension, std::int32_t{skeleton.dimension()});
    if (!skeleton.refinement().empty())
        group.setNumbers(BundleFormat::refinement, std::span<const std::int32_t>(skeleton.refinement()));
    if (skeleton.exclusionMark() != 0)
        group.setNumber(BundleFormat::excluded, skeleton.exclusionMark());
    const Group representations = group.addGroup(BundleFormat::representations);
    skeleton.representations().forEach(
        [&](const Sheaf::BaseSpace& space, const Sheaf::Representation& representation) {
            const auto* const chart = dynamic_cast<const Sheaf::CartesianChart*>(&space);
            if (chart == nullptr)
                fail(group, BundleFormat::representations,
                     "a representation that is not in a Cartesian chart cannot be stored");
            writeRepresentation(representation, fragments, addNamed(representations, chart->name(), "chart"));
            return true;
        });
}

void BundleFileWriting::writeRepresentation(const Sheaf::Representation& representation,
                                            const Fragments& fragments, const Group& group) {
    struct Member {
        const Sheaf::Field& field;
        Group group;
    };
    std::vector<Member> fields;
    representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        if (auto member = beginField(id.name(), field, group))
            fields.push_back({field, std::move(*member)});
        return true;
    });
    // Fragment after fragment, since a reader may decode all fields of one together, and the cache may not have room
    // for those of all fragments.
    for (const auto& [name, fragment] : fragments) {
        for (const Member& member : fields) {
            // Without data there is nothing to write.
            if (const auto data = member.field.getCreator(fragment))
                static_cast<void>(writeArray(*data, member.field, member.group, name, {}));
        }
    }
}

std::optional<Group> BundleFileWriting::beginField(const std::string& name, const Sheaf::Field& field,
                                                   const Group& representation) {
    requireFit(representation, name, "field");
    const Attributes attributes = attributesOf(field, representation, name);
    const auto whole = field.getCreator(nullptr);
    if (whole && field.getFragmentIDs().size() > 1)
        fail(representation, name, "the field has data both with and without fragments");
    if (whole && writeArray(*whole, field, representation, name, attributes))
        return {};
    Group group = representation.addGroup(name);
    for (const Group::Attribute& attribute : attributes)
        group.set(attribute);
    if (whole)
        return {};
    return group;
}

Attributes BundleFileWriting::attributesOf(const Sheaf::Field& field, const Group& representation,
                                           const std::string& name) {
    const std::string_view element = Sheaf::elementTypeName(field.getElementType());
    if (element.empty())
        fail(representation, name, "the field's element type cannot be stored");
    Attributes attributes{{BundleFormat::element, std::string(element)}};
    // Only encodings that extra bytes can describe are stored.
    if (const auto& encoding = field.encoding(); encoding && faultOf(*encoding).empty()) {
        const auto entry = Formats::Las::encodeExtraBytesEntry(*encoding);
        spend(representation, entry.size());
        attributes.push_back(
            {BundleFormat::lasAttribute, std::vector<std::uint8_t>(entry.begin(), entry.end())});
    }
    return attributes;
}

bool BundleFileWriting::writeArray(const Sheaf::CreativeArrayBase& creator, const Sheaf::Field& field,
                                   const Group& group, const std::string& name,
                                   const Attributes& attributes) {
    tick();
    ++done_;
    const auto data = creator.create(false);
    if (!data)
        return false;
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data);
    if (!array || array->elementType() != field.getElementType())
        fail(group, name, "the array's element type is not that of its field");
    const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(array);
    if (!lattice) {
        writeNumbers(*array, group, name, attributes);
        return true;
    }
    const Group member = group.addGroup(name);
    const std::array<double, 3> origin{lattice->origin().x, lattice->origin().y, lattice->origin().z};
    const std::array<double, 3> spacing{lattice->spacing().x, lattice->spacing().y, lattice->spacing().z};
    const std::array<std::uint64_t, 3> extents{array->extents()[0], array->extents()[1], array->extents()[2]};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(origin[axis]) || !BundleFormat::isSpacing(spacing[axis]))
            fail(group, name,
                 "uniform positions that are not finite, or whose spacing is not above 0, cannot be stored");
    }
    for (const Group::Attribute& attribute : attributes)
        member.set(attribute);
    member.setText(BundleFormat::kind, BundleFormat::uniformKind);
    member.setNumbers(BundleFormat::origin, std::span<const double>(origin));
    member.setNumbers(BundleFormat::spacing, std::span<const double>(spacing));
    member.setNumbers(BundleFormat::extents, std::span<const std::uint64_t>(extents));
    return true;
}

void BundleFileWriting::writeNumbers(const Sheaf::MemBase& array, const Group& group, const std::string& name,
                                     const Attributes& attributes) const {
    Sheaf::visitElementType(array.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Traits = Sheaf::ElementTraits<T>;
        const auto* const typed = dynamic_cast<const Sheaf::TypedArray<T>*>(&array);
        if (typed == nullptr || array.extents().rank() == 0 ||
            array.extents().elementCount() != typed->base_vector().size())
            fail(group, name, "the array cannot be stored: it does not hold what its extents say");
        std::vector<std::uint64_t> extents;
        for (std::size_t axis = array.extents().rank(); axis-- > 0;)
            extents.push_back(array.extents()[axis]);
        if (Traits::componentCount != 1)
            extents.push_back(Traits::componentCount);
        group.addDataset(
            {name, typeid(typename Traits::Component), std::move(extents), attributes, options_.Compression},
            std::as_bytes(std::span(typed->base_vector())), [this] { tick(); });
    });
}

Group BundleFileWriting::addNamed(const Group& group, const std::string& name, const char* what) const {
    requireFit(group, name, what);
    return group.addGroup(name);
}

void BundleFileWriting::requireFit(const Group& group, const std::string& name, const char* what) const {
    if (const auto fault = nameFault(name); !fault.empty())
        fail(group, name, "the " + std::string(what) + " name " + std::string(fault));
}

void BundleFileWriting::fail(const Group& group, const std::string& name, const std::string& what) const {
    throw Anchor::ModelError(path_ + ": " + Anchor::printable(group.path() + "/" + name) + ": " + what);
}

} // namespace

void writeBundleFileHere(const Sheaf::Bundle& bundle, const std::string& path,
                         const BundleFileWriteOptions& options) {
    Hdf5::NewFile file(path);
    BundleFileWriting(bundle, path, options).writeBundle(bundle, file.root());
    file.close();
}

} // namespace Tidewatch
