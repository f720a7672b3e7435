// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/LentFiles.hpp"
#include "readers/raster/Messages.hpp"
#include "readers/raster/RasterModule.hpp"
#include "readers/raster/RasterSource.hpp"
#include "readers/raster/drivers.hpp"

#include <atomic>
#include <ogr_srs_api.h>
#include <unistd.h>

namespace Tidewatch {

namespace {

/// Makes PROJ open its database of reference systems by looking up one that does not exist, since an existing
/// one takes a hundred queries.
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

    /// Every forked process has to open the database itself, since GDAL detects the fork and reopens it.
    void prepare() const override {
        Raster::registerDrivers();
        const pid_t before = preparedFor_.exchange(::getpid());
        if (before >= 0 && before != ::getpid())
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

private:
    mutable std::atomic<pid_t> preparedFor_ = -1;
};

} // namespace

const SourceModule& rasterModule() {
    static const Module module;
    return module;
}

} // namespace Tidewatch
