// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterModule.hpp"

#include "readers/raster/LentFiles.hpp"
#include "readers/raster/Messages.hpp"
#include "readers/raster/RasterSource.hpp"
#include "readers/raster/drivers.hpp"

#include <atomic>
#include <ogr_srs_api.h>
#include <unistd.h>

namespace Tidewatch {

namespace {

/// Lets PROJ open its database, and GDAL its data, as reading a raster with such a system does.
void openDatabases() {
    const Raster::Messages messages;
    const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
    static_cast<void>(OSRImportFromEPSG(system, 32633));
    OSRDestroySpatialReference(system);
}

class Module final : public SourceModule {
public:
    [[nodiscard]] std::string_view version() const override { return TIDEWATCH_VERSION; }

    /// Every process that is forked has to open the database of reference systems for itself, and GDAL remembers
    /// the systems that it has looked up: so the one that loads GDAL looks up none.
    void prepare() const override {
        Raster::registerDrivers();
        const pid_t before = preparedFor_.exchange(::getpid());
        if (before >= 0 && before != ::getpid())
            openDatabases();
    }

    [[nodiscard]] bool recognises(const SourceFiles& files) const override {
        const Raster::LentFiles lent(files);
        // A file of a refused format is recognised too, so that open() can say why it is refused.
        return !Raster::readableDriverOf(lent).empty() || !Raster::refusedDriverOf(lent).empty();
    }

    [[nodiscard]] std::unique_ptr<Source> open(const SourceFiles& files) const override {
        return std::make_unique<RasterSource>(files);
    }

private:
    mutable std::atomic<pid_t> preparedFor_ = -1;
};

} // namespace

const SourceModule& rasterModule() {
    static const Module module;
    return module;
}

} // namespace Tidewatch
