// SPDX-License-Identifier: Apache-2.0
#include "las/ExportPointCloudToLas.hpp"

#include "anchor/Cache.hpp"
#include "convlib/ExporterRegistration.hpp"
#include "las/CaptureSlots.hpp"
#include "las/LasBox.hpp"
#include "las/lasHeader.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cstdint>
#include <unordered_set>
#include <utility>

namespace ExportLib {

namespace {

const ConvLib::ExporterRegistration registration;

using Box = Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>;
using Fragment = Anchor::StrongPtr<Sheaf::FragmentID>;

/// Memory that the cache holds, in whole mebibytes.
std::uint32_t mebibytesInUse() {
    const auto bytes = static_cast<double>(Anchor::Cache::MemCache().bytesInUse());
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(bytes * 9.5367431640625e-07));
}

/// The number of points of an array, modulo 2^32; 0 where there is no array to be had.
std::uint32_t pointCount(const Sheaf::CreativeArrayBase& creator) {
    const auto extents = Sheaf::getSize(creator);
    if (!extents)
        return 0;
    std::uint32_t count = 1;
    for (std::size_t axis = 0; axis < extents->rank(); ++axis)
        count *= static_cast<std::uint32_t>((*extents)[axis]);
    return count;
}

/// The export of one grid.
class GridStep {
public:
    GridStep(ExportPointCloudToLas& exporter, const LasBox::Report& report,
             Anchor::StrongPtr<Sheaf::Grid> grid)
        : exporter_(exporter),
          report_(report),
          grid_(std::move(grid)) {}

    /// False where the slice is to be left.
    bool run();

private:
    void expandBounds();
    void announce(std::string_view field, const Fragment& fragment,
                  const Sheaf::CreativeArrayBase& data) const;
    bool mayGoOn(std::uint64_t write, std::uint64_t count);
    bool exportFragment(const Fragment& fragment);
    [[nodiscard]] std::string fileName(const std::string& suffix) const;
    [[nodiscard]] Anchor::StrongPtr<LasBox> makeBox(const Box& bounds, const std::string& name) const;
    void captureFields(const Fragment& fragment);

    ExportPointCloudToLas& exporter_;
    const LasBox::Report& report_;
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    Anchor::StrongPtr<Sheaf::Representation> representation_;
    Anchor::StrongPtr<Sheaf::Field> positions_;
    Box bounds_{new Geom::BoundingBox};
    Anchor::StrongPtr<LasBox> tile_;
};

bool GridStep::run() {
    const auto skeleton = grid_->findHighestHomogenousVertexRefinement(100000000);
    const auto chart = grid_->findCartesianChart("");
    if (!chart || !skeleton)
        return true;
    representation_ = skeleton->representations()(chart);
    if (!representation_)
        return true;
    positions_ = representation_->findField("Positions");
    if (!positions_)
        return true;
    const std::vector<Fragment> fragments = positions_->getFragmentIDs();
    expandBounds();
    std::uint64_t write = 1;
    for (const Fragment& fragment : fragments) {
        // A refusal costs this fragment only: the next one asks again.
        if (!mayGoOn(write++, fragments.size()))
            exporter_.Errors.emplace_back("Interrupted");
        else if (!exportFragment(fragment))
            return false;
    }
    return true;
}

/// The box of the whole field, which needs all of its arrays.
void GridStep::expandBounds() {
    positions_->forEachFragment([&](const Fragment& fragment, const Sheaf::Field::Creator& data) {
        exporter_.askWhetherToStop();
        announce("Positions", fragment, *data);
        Sheaf::ExpandBBox(*bounds_, *data, true);
        return true;
    });
}

void GridStep::announce(std::string_view field, const Fragment& fragment,
                        const Sheaf::CreativeArrayBase& data) const {
    if (exporter_.Observer())
        exporter_.Observer()->fragmentBegins(
            field, fragment ? std::string_view(fragment->name()) : std::string_view(), pointCount(data));
}

bool GridStep::mayGoOn(std::uint64_t write, std::uint64_t count) {
    if (!exporter_.Progress)
        return true;
    const std::string text = "KxToLas, (Mem: " + std::to_string(mebibytesInUse()) + "[MB]), Write #";
    return exporter_.Progress->progress(text, write, count);
}

/// Writes a fragment; false where there is nothing to write for want of positions.
bool GridStep::exportFragment(const Fragment& fragment) {
    const auto creator = positions_->getCreator(fragment);
    if (!creator)
        return true;
    exporter_.askWhetherToStop();
    announce("", fragment, *creator);
    // Held until the slots have it, so that the cache does not drop it in between.
    auto data = creator->create(false);
    if (Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data))
        return true;
    if (exporter_.tiles) {
        const Box bounds{new Geom::BoundingBox};
        Sheaf::ExpandBBox(*bounds, *creator, true);
        // The file before stays open until this one is: the assignment comes last.
        tile_ = makeBox(bounds, fileName("_" + (fragment ? fragment->name() : "Unfragmented")));
    } else if (!tile_) {
        tile_ = makeBox(bounds_, fileName(""));
    }
    captureFields(fragment);
    data.reset();
    ++exporter_.FragmentCount;
    if (!tile_->slots().positions) {
        exporter_.Errors.emplace_back("No positions to export");
        return false;
    }
    tile_->writePoints(pointCount(*creator));
    // Memory peaks at one fragment only if it goes before the next one comes.
    tile_->slots().clear();
    return true;
}

std::string GridStep::fileName(const std::string& suffix) const {
    // The last dot of the whole path, that of a folder too: hosts that hand over "run.3/cloud" have always
    // got "run.laz". A path without one is taken whole.
    const std::string& path = exporter_.OutputPath;
    return path.substr(0, path.rfind('.')) + suffix + (exporter_.uncompressed ? ".las" : ".laz");
}

Anchor::StrongPtr<LasBox> GridStep::makeBox(const Box& bounds, const std::string& name) const {
    return Anchor::makeStrong<LasBox>(exporter_.Day, exporter_.Year, bounds, *representation_, name,
                                      exporter_.Version, exporter_.PointSourceID, grid_, report_);
}

void GridStep::captureFields(const Fragment& fragment) {
    const auto chart = grid_->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0);
    const auto skeleton = grid_->skeletons().findVertices(-1);
    if (!skeleton)
        return;
    CaptureSlots& slots = tile_->slots();
    slots.clear();
    std::unordered_set<std::string> handled;
    skeleton->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        std::string name = id.name();
        if (!exporter_.UseThisField(name) || handled.contains(name))
            return true;
        const auto field = grid_->getField(chart, name, skeleton);
        const auto creator = field ? field->getCreator(fragment) : nullptr;
        const auto data = creator ? creator->create(false) : nullptr;
        if (!data)
            return true;
        const auto renamed = exporter_.RenameMap.find(name);
        if (renamed != exporter_.RenameMap.end())
            name = renamed->second;
        slots.capture(name, data);
        handled.insert(std::move(name));
        return true;
    });
}

} // namespace

ExportPointCloudToLas::ExportPointCloudToLas() = default;
ExportPointCloudToLas::~ExportPointCloudToLas() = default;

std::string ExportPointCloudToLas::printSecondary() {
    std::string text;
    const auto append = [&](const char* label, int value) { text += label + std::to_string(value) + " "; };
    append("\nDay: ", Day);
    append("\nYear: ", Year);
    append("\nVersion: ", Version);
    append("\nRefLevel: ", RefLevel);
    if (tiles)
        text += "\nExport as tiles ";
    return text;
}

bool ExportPointCloudToLas::Run() {
    const auto bundle = bundleptr.lock();
    if (!bundle)
        return true;
    // Every run states its parameters to the base first; what the text says is the base's business.
    static_cast<void>(printParameters());
    if (RenameMap.empty())
        RenameMap = DefaultRenameMap();
    const LasBox::Report report = [this](const ConvLib::WrittenFile& file) { recordWrittenFile(file); };
    for (const auto& [time, weakSlice] : bundle->slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        slice->accessSlice();
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            if (!grid || !UseThisGrid(name))
                continue;
            takeUpGrid(time, name);
            if (!GridStep(*this, report, grid).run())
                break;
        }
    }
    return true;
}

std::map<std::string, std::string> ExportPointCloudToLas::DefaultRenameMap() {
    return CaptureSlots::defaultNames();
}

bool ExportPointCloudToLas::Carries(std::string_view lasName, const std::type_info& elementType) {
    return CaptureSlots::takes(lasName, elementType);
}

ExportPointCloudToLas::Axis ExportPointCloudToLas::AxisOf(double lower, double upper) {
    if (!(lower <= upper))
        lower = upper = 0;
    LASheader header;
    setExtent(header, {lower, 0, 0}, {upper, 0, 0});
    return {header.x_offset, header.x_scale_factor};
}

} // namespace ExportLib
