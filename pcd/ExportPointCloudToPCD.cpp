// SPDX-License-Identifier: Apache-2.0
#include "pcd/ExportPointCloudToPCD.hpp"

#include "anchor/Console.hpp"
#include "convlib/ExporterRegistration.hpp"
#include "convlib/LineWriter.hpp"
#include "convlib/NumberText.hpp"
#include "convlib/ReferenceVertices.hpp"
#include "pcd/GatheredArrays.hpp"
#include "pcd/PcdPrecision.hpp"
#include "pcd/PointShading.hpp"
#include "pcd/addPCDHeader.hpp"
#include "pcd/cloudFragments.hpp"
#include "pcd/heightQuantiles.hpp"
#include "pcd/inBlocks.hpp"
#include "pcd/reduceData.hpp"
#include "sheaf/Grid.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <limits>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

namespace ExportLib {

namespace {

const ConvLib::ExporterRegistration registration;

using Geom::PhysicalSpace;

/// All data of one grid that goes into its file.
struct Cloud {
    std::vector<PhysicalSpace::point> positions;
    std::vector<unsigned short> intensities;

    /// Every position has an intensity; otherwise the plain layout is written.
    [[nodiscard]] bool isShaded() const noexcept { return positions.size() == intensities.size(); }
};

struct Box {
    PhysicalSpace::point lower;
    PhysicalSpace::point upper;
};

Box boundingBox(const std::vector<PhysicalSpace::point>& positions, Anchor::Workers* workers,
                const StopQuestion& mayGoOn) {
    // The upper corner starts at the smallest positive double, see PcdAxis.
    constexpr double max = std::numeric_limits<double>::max();
    constexpr double smallest = std::numeric_limits<double>::min();
    const Box none{{max, max, max}, {smallest, smallest, smallest}};
    const auto widen = [](double& low, double& high, double lowest, double highest) {
        low = lowest < low ? lowest : low;
        high = highest > high ? highest : high;
    };
    const auto widenBox = [&](Box& box, const PhysicalSpace::point& low, const PhysicalSpace::point& high) {
        widen(box.lower.x, box.upper.x, low.x, high.x);
        widen(box.lower.y, box.upper.y, low.y, high.y);
        widen(box.lower.z, box.upper.z, low.z, high.z);
    };
    std::vector<Box> boxes(blockCount(positions.size()), none);
    inBlocksSideBySide(positions.size(), workers, mayGoOn,
                       [&](std::size_t block, std::size_t begin, std::size_t end) {
                           for (std::size_t i = begin; i < end; ++i)
                               widenBox(boxes[block], positions[i], positions[i]);
                       });
    // In their order: of equal numbers, such as two zeros, the first counts.
    Box all = none;
    for (const Box& box : boxes)
        widenBox(all, box.lower, box.upper);
    return all;
}

PhysicalSpace::vector shiftOf(const Box& box) {
    return {PcdAxis::of(box.lower.x, box.upper.x).shift, PcdAxis::of(box.lower.y, box.upper.y).shift,
            PcdAxis::of(box.lower.z, box.upper.z).shift};
}

/// The smallest and the largest intensity.
std::pair<unsigned short, unsigned short> rangeOf(const std::vector<unsigned short>& intensities,
                                                  const StopQuestion& mayGoOn) {
    unsigned short lowest = std::numeric_limits<unsigned short>::max();
    unsigned short highest = 0;
    inBlocks(intensities.size(), mayGoOn, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            lowest = std::min(lowest, intensities[i]);
            highest = std::max(highest, intensities[i]);
        }
    });
    return {lowest, highest};
}

/// Writes a line for each index: compose(text, index) its numbers.
template <class Compose>
void writeLines(ConvLib::LineWriter& lines, const std::vector<unsigned long long>& indices,
                Anchor::Workers* workers, const StopQuestion& mayGoOn, Compose&& compose) {
    // Small enough that each processor has several, large enough to be worth handing out.
    constexpr std::size_t block = 16384;
    mayGoOn();
    lines.composeInBlocks(
        indices.size(), block, workers,
        [&](ConvLib::LineText& text, std::size_t begin, std::size_t end) {
            for (std::size_t line = begin; line < end; ++line) {
                compose(text, indices[line]);
                text.endLine();
            }
        },
        [&](std::size_t, std::size_t) { mayGoOn(); });
}

std::vector<unsigned long long> allOf(std::size_t points) {
    std::vector<unsigned long long> indices(points);
    std::iota(indices.begin(), indices.end(), 0ULL);
    return indices;
}

void reportPositions(ConvLib::RunObserver& observer, const std::vector<PhysicalSpace::point>& positions,
                     const StopQuestion& mayGoOn) {
    inBlocks(positions.size(), mayGoOn, [&](std::size_t begin, std::size_t end) {
        observer.positionsWritten(std::span(positions).subspan(begin, end - begin));
    });
}

/// Reports the changes of a cloud of which the file contains `kept` points.
void reportChanges(ConvLib::RunObserver& observer, const Cloud& cloud, std::size_t kept, int precision) {
    using ConvLib::ValueChange;
    if (kept != cloud.positions.size())
        observer.valuesChanged(
            {"Positions", ValueChange::Thinned, cloud.positions.size() - kept, cloud.positions.size()});
    if (!cloud.isShaded() && !cloud.intensities.empty())
        observer.valuesChanged(
            {"Intensity", ValueChange::Dropped, cloud.intensities.size(), cloud.intensities.size()});
    if (cloud.isShaded() && ConvLib::effectivePrecision(precision) < pcdColorDigits)
        observer.valuesChanged({"rgb", ValueChange::Rounded, kept, kept});
}

} // namespace

ExportPointCloudToPCD::ExportPointCloudToPCD() = default;
ExportPointCloudToPCD::~ExportPointCloudToPCD() = default;

bool ExportPointCloudToPCD::Run() {
    const auto bundle = bundleptr.lock();
    if (!bundle) {
        Errors.emplace_back("bundleptr is null");
        return false;
    }
    Anchor::Console() << "Run";
    for (const auto& [time, weakSlice] : bundle->slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        slice->accessSlice();
        for (const auto& [name, weakGrid] : slice->grids()) {
            if (const auto grid = weakGrid.lock())
                exportGrid(time, name, *grid);
        }
    }
    return true;
}

void ExportPointCloudToPCD::exportGrid(double time, const std::string& name, const Sheaf::Grid& grid) {
    if (!UseThisGrid(name))
        return;
    takeUpGrid(time, name);
    const ConvLib::ReferenceVertices reference = ConvLib::findReferenceVertices(grid);
    if (!reference.representation)
        return;

    const Anchor::StrongPtr<ConvLib::RunObserver> observer = Observer();
    const StopQuestion mayGoOn = [this] { askWhetherToStop(); };
    GatheredArrays<PhysicalSpace::point> positions;
    GatheredArrays<unsigned short> intensities;
    const auto collect = [&](const CloudFragment& fragment) {
        mayGoOn();
        if (observer)
            observer->fragmentBegins(fragment.field, {}, fragment.planned().elements);
        if (fragment.role == PcdPlan::Role::Positions)
            positions.add(fragment.data);
        else if (fragment.role == PcdPlan::Role::Intensity)
            intensities.add(fragment.data);
    };
    forEachCloudFragment(
        grid, *reference.skeleton, RefLevel, [this](const std::string& field) { return UseThisField(field); },
        collect);
    Cloud cloud{positions.join(), intensities.join()};
    // Without a position there is neither a box nor a height to speak of, and an existing file stays.
    if (cloud.positions.empty())
        return;

    // Every grid opens the same path: the file ends up with the last one. Hosts rely on finding one file.
    std::ofstream out(OutputPath, std::ios::out | std::ios::trunc);
    int error = out.is_open() ? 0 : errno;

    if (observer)
        reportPositions(*observer, cloud.positions, mayGoOn);
    Box box = boundingBox(cloud.positions, workers(), mayGoOn);
    const PhysicalSpace::vector shift = shiftOf(box);
    inBlocksSideBySide(cloud.positions.size(), workers(), mayGoOn,
                       [&](std::size_t, std::size_t begin, std::size_t end) {
                           for (std::size_t i = begin; i < end; ++i)
                               cloud.positions[i] = cloud.positions[i] - shift;
                       });
    box = {box.lower - shift, box.upper - shift};
    const HeightQuantiles heights = heightQuantiles(cloud.positions, mayGoOn, workers());
    const std::vector<unsigned long long> indices =
        Thinning ? reduceData(CellSize, cloud.positions, cloud.intensities, box.lower, box.upper, mayGoOn,
                              workers())
                 : allOf(cloud.positions.size());
    if (observer)
        reportChanges(*observer, cloud, indices.size(), Precision);

    // The header counts the points before thinning unless the host asks for exact counts: deliberate, because
    // the numbers are read as the size of the survey.
    const std::uint64_t count = ExactCounts ? indices.size() : cloud.positions.size();
    const PCDLayout layout = cloud.isShaded() ? PCDLayout::Intensity : PCDLayout::Plain;
    if (layout == PCDLayout::Intensity)
        addPCDHeaderIntensity(out, count, shift, FlushLines());
    else
        addPCDHeaderPlain(out, count, shift, FlushLines());

    ConvLib::LineWriter lines(out, FlushLines());
    if (layout == PCDLayout::Intensity) {
        const auto [lowest, highest] = rangeOf(cloud.intensities, mayGoOn);
        if (observer && lowest == highest)
            observer->valuesChanged(
                {"Intensity", ConvLib::ValueChange::NotFinite, indices.size(), indices.size()});
        const PointShading shading(heights, lowest, highest);
        writeLines(lines, indices, workers(), mayGoOn,
                   [&](ConvLib::LineText& text, unsigned long long index) {
                       const PhysicalSpace::point& p = cloud.positions[index];
                       const float intensity = shading.intensity(cloud.intensities[index]);
                       const float color = shading.color(p.z, intensity);
                       text.generalRow(std::array{p.x, p.y, p.z, static_cast<double>(intensity),
                                                  static_cast<double>(color)},
                                       Precision);
                   });
    } else {
        writeLines(lines, indices, workers(), mayGoOn,
                   [&](ConvLib::LineText& text, unsigned long long index) {
                       const PhysicalSpace::point& p = cloud.positions[index];
                       text.generalRow(std::array{p.x, p.y, p.z}, Precision);
                   });
    }
    lines.finish();
    if (error == 0)
        error = lines.error();
    errno = 0;
    out.close();
    if (error == 0 && out.fail())
        error = errno;
    recordWrittenFile({OutputPath, pcdHeader(layout, count, shift).size() + lines.bytes(), indices.size(),
                       out.fail(), error});
}

} // namespace ExportLib
