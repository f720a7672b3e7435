// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/LentFiles.hpp"
#include "readers/raster/Messages.hpp"
#include "readers/raster/RasterModule.hpp"
#include "readers/raster/RasterSource.hpp"
#include "readers/raster/drivers.hpp"

#include <ogr_srs_api.h>

namespace Tidewatch {

namespace {

/// Makes PROJ open its database of reference systems, by looking up one that does not exist: an existing one takes a
/// hundred queries. Costs next to nothing where the database is open.
void openDatabase() {
    constexpr int none = 999999;
    const Raster::Messages messages;
    const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
    static_cast<void>(OSRImportFromEPSG(system, none));
    OSRDestroySpatialReference(system);
}

class Module final : public SourceModule {
public:
    [[nodiscard]] std::string_view version() const override { return TIDEWATCH_VERSION; }

    void prepare() const override {
        Raster::registerDrivers();
        openDatabase();
    }

    [[nodiscard]] bool recognises(const SourceFiles& files) const override {
        const Raster::LentFiles lent(files);
        // A file of a refused format is recognised as well, so that open() can say why it is refused.
        return !Raster::readableDriverOf(lent).empty() || !Raster::refusedDriverOf(lent).empty();
    }

    [[nodiscard]] std::unique_ptr<Source> open(const SourceFiles& files) const override {
        return std::make_unique<RasterSource>(files);
    }
};

} // namespace

const SourceModule& rasterModule() {
    static const Module module;
    return module;
}

} // namespace Tidewatch
