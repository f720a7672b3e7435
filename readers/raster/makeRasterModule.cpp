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
    // A compound system, whose parts are of different kinds.
    for (const int code : {32633, 7415}) {
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        static_cast<void>(OSRImportFromEPSG(system, code));
        OSRDestroySpatialReference(system);
    }
}

class Module final : public SourceModule {
public:
    [[nodiscard]] std::string_view version() const override { return TIDEWATCH_VERSION; }

    /// Each process has to open the database of reference systems for itself: GDAL notices that it was forked.
    void prepare() const override {
        Raster::registerDrivers();
        if (preparedFor_.exchange(::getpid()) != ::getpid())
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
