// SPDX-License-Identifier: Apache-2.0
#include "las/ExportPointCloudToLas.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "convlib/ExporterRegistration.hpp"
#include "convlib/ReferenceVertices.hpp"
#include "las/CaptureSlots.hpp"
#include "las/LasBox.hpp"
#include "las/LasLayout.hpp"
#include "las/lasRules.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
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

void appendTriple(std::string& text, const char* label, const std::optional<std::array<double, 3>>& triple) {
    if (!triple)
        return;
    text += label;
    for (const double number : *triple) {
        char digits[32];
        text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
        text += " ";
    }
}

/// The export of one grid.
class GridStep {
public:
    GridStep(ExportPointCloudToLas& exporter, const LasBox::Host& host, Anchor::StrongPtr<Sheaf::Grid> grid)
        : exporter_(exporter),
          host_(host),
          grid_(std::move(grid)) {}

    /// False if the rest of the slice is to be skipped.
    bool run();

private:
    bool exportFragments();
    void expandBounds();
    void announce(std::string_view field, const Fragment& fragment,
                  const Sheaf::CreativeArrayBase& data) const;
    bool mayGoOn(std::uint64_t write, std::uint64_t count);
    bool exportFragment(const Fragment& fragment);
    [[nodiscard]] Box boundsOfTile(const Sheaf::CreativeArrayBase& positions) const;
    [[nodiscard]] Anchor::StrongPtr<LasBox> makeBox(const Box& bounds, const Fragment& fragment,
                                                    bool tiled) const;
    void fillSlots(const Fragment& fragment);
    void fillExtras(const Fragment& fragment);
    void planLayout();

    ExportPointCloudToLas& exporter_;
    const LasBox::Host& host_;
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    Anchor::StrongPtr<Sheaf::Representation> representation_;
    Anchor::StrongPtr<Sheaf::Field> positions_;
    Box bounds_{new Geom::BoundingBox};
    std::map<const Sheaf::CreativeArrayBase*, Box> boundsOfFragments_;
    Anchor::StrongPtr<LasBox> tile_;
    BeyondContract beyond_;
};

bool GridStep::run() {
    const bool goesOn = exportFragments();
    if (tile_)
        tile_->tellSupplies();
    return goesOn;
}

bool GridStep::exportFragments() {
    representation_ = ConvLib::findReferenceVertices(*grid_).representation;
    if (!representation_)
        return true;
    positions_ = representation_->Positions();
    const std::vector<Fragment> fragments = positions_->getFragmentIDs();
    expandBounds();
    planLayout();
    std::uint64_t write = 1;
    for (const Fragment& fragment : fragments) {
        // A refusal skips this fragment only: the next one asks again.
        if (!mayGoOn(write++, fragments.size()))
            exporter_.Errors.emplace_back("Interrupted");
        else if (!exportFragment(fragment))
            return false;
    }
    return true;
}

/// Plans what the host has requested beyond the contract; without such requests, no host callbacks are made.
void GridStep::planLayout() {
    beyond_.settings = LasSettings::of(exporter_);
    beyond_.additions = exporter_.additions();
    if (exporter_.Carry() || exporter_.Conforming())
        beyond_.layout =
            LasLayout::of(*grid_, *representation_, beyond_.settings, exporter_.RenameMap,
                          [&](const std::string& field) { return exporter_.UseThisField(field); });
}

/// Computes the box of the whole field, which reads all of its arrays.
void GridStep::expandBounds() {
    positions_->forEachFragment([&](const Fragment& fragment, const Sheaf::Field::Creator& data) {
        exporter_.askWhetherToStop();
        announce("Positions", fragment, *data);
        if (const Box bounds = Sheaf::boundsOf(*data, true, host_.askWhetherToStop, host_.workers)) {
            bounds_->expand(*bounds);
            boundsOfFragments_.emplace(data.get(), bounds);
        }
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

/// The box of a fragment, if possible from expandBounds(). An array that had no coordinates then is requested
/// again.
Box GridStep::boundsOfTile(const Sheaf::CreativeArrayBase& positions) const {
    const auto known = boundsOfFragments_.find(&positions);
    Box bounds = known != boundsOfFragments_.end()
                     ? known->second
                     : Sheaf::boundsOf(positions, true, host_.askWhetherToStop, host_.workers);
    return bounds ? bounds : Box(new Geom::BoundingBox);
}

/// Writes a fragment; false if it has no positions.
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
        if (tile_)
            tile_->tellSupplies();
        // The assignment comes last, so that the previous file is closed after this one has been opened.
        tile_ = makeBox(boundsOfTile(*creator), fragment, true);
    } else if (!tile_) {
        tile_ = makeBox(bounds_, fragment, false);
    }
    fillSlots(fragment);
    data.reset();
    ++exporter_.FragmentCount;
    if (!tile_->slots().positions) {
        exporter_.Errors.emplace_back("No positions to export");
        return false;
    }
    tile_->writePoints(pointCount(*creator));
    // Released before the next fragment is read, so that only one is in memory.
    tile_->clear();
    return true;
}

Anchor::StrongPtr<LasBox> GridStep::makeBox(const Box& bounds, const Fragment& fragment, bool tiled) const {
    return Anchor::makeStrong<LasBox>(
        exporter_.Day, exporter_.Year, bounds, *representation_,
        lasFileName(exporter_.OutputPath, fragment, tiled, exporter_.uncompressed), exporter_.Version,
        exporter_.PointSourceID, grid_, host_, beyond_);
}

void GridStep::fillSlots(const Fragment& fragment) {
    const auto chart = grid_->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0);
    const auto skeleton = grid_->skeletons().findVertices(-1);
    if (!skeleton)
        return;
    CaptureSlots& slots = tile_->slots();
    slots.clear();
    captureFields(
        *grid_, chart, skeleton, fragment,
        [&](const std::string& name) { return exporter_.UseThisField(name); },
        [](const Sheaf::Field::Creator& creator) { return creator->create(false); },
        // Looked up only now: the host may have changed the map while the data was created.
        [&](const std::string& name) { return attributeOf(exporter_.RenameMap, name); },
        [&](const std::string& attribute, const std::string&,
            const Anchor::StrongPtr<Anchor::Cacheable>& data) {
            slots.capture(attribute, data, beyond_.settings.carry);
        },
        [](const std::string&) {});
    fillExtras(fragment);
}

void GridStep::fillExtras(const Fragment& fragment) {
    const auto chart = grid_->findCartesianChart(std::string(Sheaf::Grid::standardChart));
    const auto skeleton = grid_->skeletons().findVertices(-1);
    // The components of a field are adjacent, so its array is requested once.
    std::string last;
    Anchor::StrongPtr<Anchor::Cacheable> data;
    for (ExtraBytesWriter& extra : tile_->extras()) {
        const std::string& name = extra.description().field;
        if (name != last) {
            const auto field = grid_->getField(chart, name, skeleton);
            const auto creator = field ? field->getCreator(fragment) : nullptr;
            data = creator ? creator->create(false) : nullptr;
            last = name;
        }
        extra.take(data);
    }
}

} // namespace

class ExportPointCloudToLas::Own final : public OwnSettings {
public:
    bool carry = false;
    bool conforming = false;
    std::optional<std::array<double, 3>> step;
    std::optional<std::array<double, 3>> offset;

    [[nodiscard]] std::string print() const override {
        std::string text;
        if (carry)
            text += "\nCarry ";
        if (conforming)
            text += "\nConforming ";
        appendTriple(text, "\nStep: ", step);
        appendTriple(text, "\nOffset: ", offset);
        return text;
    }
};

const ExportPointCloudToLas::Own& ExportPointCloudToLas::own() const noexcept {
    static const Own defaults;
    // Only this class sets them, so the cast is safe.
    const OwnSettings* const settings = ownSettings();
    return settings != nullptr ? static_cast<const Own&>(*settings) : defaults;
}

ExportPointCloudToLas::Own& ExportPointCloudToLas::own() {
    if (ownSettings() == nullptr)
        setOwnSettings(std::make_unique<Own>());
    return static_cast<Own&>(*ownSettings());
}

bool ExportPointCloudToLas::Carry() const noexcept {
    return own().carry;
}

void ExportPointCloudToLas::setCarry(bool carry) {
    own().carry = carry;
}

bool ExportPointCloudToLas::Conforming() const noexcept {
    return own().conforming;
}

void ExportPointCloudToLas::setConforming(bool conforming) {
    own().conforming = conforming;
}

std::optional<std::array<double, 3>> ExportPointCloudToLas::Step() const noexcept {
    return own().step;
}

std::optional<std::array<double, 3>> ExportPointCloudToLas::Offset() const noexcept {
    return own().offset;
}

void ExportPointCloudToLas::setStep(const std::optional<std::array<double, 3>>& step) {
    if (step && !std::all_of(step->begin(), step->end(), [](double s) { return std::isfinite(s) && s > 0; }))
        throw Anchor::ModelError("LAS exporter: a step of coordinates is not a finite number above 0");
    own().step = step;
}

void ExportPointCloudToLas::setOffset(const std::optional<std::array<double, 3>>& offset) {
    if (offset && !std::all_of(offset->begin(), offset->end(), [](double o) { return std::isfinite(o); }))
        throw Anchor::ModelError("LAS exporter: an offset of coordinates is not a finite number");
    own().offset = offset;
}

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
    // Every run begins with a call of printParameters(); its text is not used here.
    static_cast<void>(printParameters());
    if (RenameMap.empty())
        RenameMap = DefaultRenameMap();
    const LasBox::Host host{[this](const ConvLib::WrittenFile& file) { recordWrittenFile(file); }, Observer(),
                            [this] { askWhetherToStop(); }, workers()};
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
            if (!GridStep(*this, host, grid).run())
                break;
        }
    }
    return true;
}

std::map<std::string, std::string> ExportPointCloudToLas::DefaultRenameMap() {
    return CaptureSlots::defaultNames();
}

} // namespace ExportLib
