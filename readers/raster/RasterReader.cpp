// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterReader.hpp"

#include "readers/SingleGrid.hpp"
#include "readers/raster/RasterArrayCreator.hpp"
#include "readers/raster/RasterFile.hpp"
#include "readers/raster/drivers.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <memory>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

class RasterReport final : public ConvLib::InputReport {
public:
    RasterReport(std::shared_ptr<const RasterSource> source, std::string grid)
        : source_(std::move(source)),
          grid_(std::move(grid)) {}

    [[nodiscard]] std::string file() const override { return source_->path; }
    [[nodiscard]] std::string kind() const override {
        const std::size_t bands = source_->description.bands.size();
        return fmt::format("raster ({}), {} band{}", source_->description.driver, bands,
                           bands == 1 ? "" : "s");
    }
    [[nodiscard]] std::string grid() const override { return grid_; }
    [[nodiscard]] std::vector<std::string> notCarried() const override { return source_->notCarried(); }
    [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override { return {}; }

private:
    std::shared_ptr<const RasterSource> source_;
    std::string grid_;
};

void fillGrid(const SingleGrid& target, const std::shared_ptr<RasterSource>& source) {
    const Raster::Description& raster = source->description;
    const auto fragment = target.grid.makeFragment("000000");
    const auto add = [&](const std::string& name, Anchor::StrongPtr<Sheaf::CreativeArrayBase> data) {
        const auto field = target.vertices.makeField(name, data->elementType());
        field->addFragment(fragment, std::move(data));
    };
    add("Positions", Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                         raster.placing.corner, raster.placing.spacing,
                         Sheaf::MultiIndex<3>{raster.width, raster.height, 1})));
    for (std::size_t band = 0; band < raster.bands.size(); ++band)
        add(fmt::format("Band{}", band + 1), Anchor::makeStrong<BandCreator>(source, band));
    add("CellType", Anchor::makeStrong<CellTypeCreator>(source));
}

} // namespace

RasterReader::~RasterReader() = default;

std::string RasterReader::name() const {
    return "raster";
}

bool RasterReader::recognises(const std::string& path, std::span<const std::byte>) const {
    // A file of a refused format is recognised too, so that read() can say why it is refused.
    return !Raster::readableDriverOf(path).empty() || !Raster::refusedDriverOf(path).empty();
}

Anchor::StrongPtr<ConvLib::InputReport> RasterReader::read(Sheaf::Bundle& bundle, const std::string& path,
                                                           const ConvLib::ReadOptions& options) const {
    const auto source = std::make_shared<RasterSource>(path, options);
    const std::string name =
        addSingleGrid(bundle, path, options, [&](const SingleGrid& target) { fillGrid(target, source); });
    return Anchor::makeStrong<RasterReport>(source, name);
}

} // namespace Tidewatch
