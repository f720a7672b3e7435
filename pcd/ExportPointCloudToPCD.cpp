// SPDX-License-Identifier: Apache-2.0
#include "pcd/ExportPointCloudToPCD.hpp"

#include "anchor/Console.hpp"
#include "capture/captureArray.hpp"
#include "convlib/ExporterRegistration.hpp"
#include "convlib/LineWriter.hpp"
#include "pcd/PointShading.hpp"
#include "pcd/addPCDHeader.hpp"
#include "pcd/heightQuantiles.hpp"
#include "pcd/reduceData.hpp"
#include "sheaf/Grid.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <vector>

namespace ExportLib {

namespace {

const ConvLib::ExporterRegistration registration;

using Geom::PhysicalSpace;

/// Everything of one grid that goes into its file.
struct Cloud {
    std::vector<PhysicalSpace::point> positions;
    std::vector<unsigned short> intensities;

    /// Every position has an intensity; otherwise the plain layout is written.
    [[nodiscard]] bool isShaded() const noexcept { return positions.size() == intensities.size(); }
};

/// Collects the positions and intensities of the selected skeletons.
class CloudCollector final : public Sheaf::ConstSkeletonIterator {
public:
    CloudCollector(ExportPointCloudToPCD& exporter, const Sheaf::Skeleton& reference, Cloud& cloud)
        : exporter_(exporter),
          reference_(reference),
          cloud_(cloud) {}

    bool apply(const Sheaf::Skeleton& skeleton, const std::string& fieldName,
               const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& data) override {
        if (isSelected(skeleton) && exporter_.UseThisField(fieldName)) {
            if (fieldName == "Positions")
                captureArray(cloud_.positions, data);
            else if (fieldName == "Intensity")
                captureArray(cloud_.intensities, data);
        }
        return true;
    }

private:
    [[nodiscard]] bool isSelected(const Sheaf::Skeleton& skeleton) const {
        if (skeleton.exclusionMark() != 0)
            return false;
        return exporter_.RefLevel == -1 ? &skeleton == &reference_
                                        : skeleton.refinementLevel() == exporter_.RefLevel;
    }

    ExportPointCloudToPCD& exporter_;
    const Sheaf::Skeleton& reference_;
    Cloud& cloud_;
};

struct Box {
    PhysicalSpace::point lower;
    PhysicalSpace::point upper;
};

Box boundingBox(const std::vector<PhysicalSpace::point>& positions) {
    // The upper corner starts at the smallest positive double, not at the most negative one, and so it stays
    // there along an axis whose coordinates are all negative. Shifts in files of the past depend on it: do
    // not mend it.
    constexpr double most = std::numeric_limits<double>::max();
    constexpr double least = std::numeric_limits<double>::min();
    Box box{{most, most, most}, {least, least, least}};
    const auto widen = [](double& low, double& high, double value) {
        low = value < low ? value : low;
        high = value > high ? value : high;
    };
    for (const PhysicalSpace::point& p : positions) {
        widen(box.lower.x, box.upper.x, p.x);
        widen(box.lower.y, box.upper.y, p.y);
        widen(box.lower.z, box.upper.z, p.z);
    }
    return box;
}

/// The centre of the box, each coordinate rounded down to a whole number.
PhysicalSpace::vector centreOf(const Box& box) {
    const auto centre = [](double low, double high) { return std::floor((high - low) * 0.5 + low); };
    return {centre(box.lower.x, box.upper.x), centre(box.lower.y, box.upper.y),
            centre(box.lower.z, box.upper.z)};
}

void writeLines(ConvLib::LineWriter& lines, const Cloud& cloud,
                const std::vector<unsigned long long>& indices, int precision) {
    for (const unsigned long long index : indices) {
        const PhysicalSpace::point& p = cloud.positions[index];
        lines.generalRow(std::array{p.x, p.y, p.z}, precision);
        lines.endLine();
    }
}

void writeShadedLines(ConvLib::LineWriter& lines, const Cloud& cloud,
                      const std::vector<unsigned long long>& indices, int precision,
                      const PointShading& shading) {
    for (const unsigned long long index : indices) {
        const PhysicalSpace::point& p = cloud.positions[index];
        const float intensity = shading.intensity(cloud.intensities[index]);
        const float color = shading.color(p.z, intensity);
        lines.generalRow(
            std::array{p.x, p.y, p.z, static_cast<double>(intensity), static_cast<double>(color)}, precision);
        lines.endLine();
    }
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
                exportGrid(name, *grid);
        }
    }
    return true;
}

void ExportPointCloudToPCD::exportGrid(const std::string& name, const Sheaf::Grid& grid) {
    if (!UseThisGrid(name))
        return;
    const auto skeleton = grid.findHighestHomogenousVertexRefinement(100000000);
    if (!skeleton)
        return;
    const auto representation = skeleton->representations()(grid.findCartesianChart(""));
    if (!representation || !representation->Positions())
        return;

    Cloud cloud;
    CloudCollector collector(*this, *skeleton, cloud);
    grid.skeletons().iterate(collector);
    // Without a position there is neither a box nor a height to speak of, and what stands at the path stays.
    if (cloud.positions.empty())
        return;

    // Every grid opens the same path: the file holds the last one. Hosts rely on finding one file.
    std::ofstream out(OutputPath, std::ios::out | std::ios::trunc);

    Box box = boundingBox(cloud.positions);
    const PhysicalSpace::vector shift = centreOf(box);
    for (PhysicalSpace::point& p : cloud.positions)
        p = p - shift;
    box = {box.lower - shift, box.upper - shift};
    const HeightQuantiles heights = heightQuantiles(cloud.positions);
    const std::vector<unsigned long long> indices =
        reduceData(CellSize, cloud.positions, cloud.intensities, box.lower, box.upper);

    // The header counts the points before thinning unless the host asks for exact counts: deliberate, since
    // the numbers are read as the size of the survey.
    const std::uint64_t count = ExactCounts ? indices.size() : cloud.positions.size();
    const PCDLayout layout = cloud.isShaded() ? PCDLayout::Intensity : PCDLayout::Plain;
    if (layout == PCDLayout::Intensity)
        addPCDHeaderIntensity(out, count, shift, FlushLines());
    else
        addPCDHeaderPlain(out, count, shift, FlushLines());

    ConvLib::LineWriter lines(out, FlushLines());
    if (layout == PCDLayout::Intensity) {
        const auto [least, greatest] =
            std::minmax_element(cloud.intensities.begin(), cloud.intensities.end());
        writeShadedLines(lines, cloud, indices, Precision, PointShading(heights, *least, *greatest));
    } else {
        writeLines(lines, cloud, indices, Precision);
    }
    lines.finish();
    out.close();
    recordWrittenFile(
        {OutputPath, pcdHeader(layout, count, shift).size() + lines.bytes(), indices.size(), out.fail()});
}

} // namespace ExportLib
