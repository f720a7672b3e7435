// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/drivers.hpp"

#include "readers/raster/Messages.hpp"

#include <gdal.h>
#include <mutex>

namespace Tidewatch::Raster {

namespace {

constexpr const char* readable[] = {
    "GTiff", "AAIGrid", "GRASSASCIIGrid", "EHdr", "ENVI", "SRTMHGT", "USGSDEM", "DTED", "GSAG", "GSBG",
    "GS7BG", "XYZ",     "ZMap",           "BT",   "PNG",  "JPEG",    "WEBP",    "GIF",  "BMP",  "JP2OpenJPEG",
    "PNM",   nullptr};

constexpr const char* refused[] = {"VRT", "WMS", "WMTS", "WCS", "HFA", "MRF", "ERS", "TIL", "DIMAP", nullptr};

std::string driverOf(const LentFiles& files, const char* const* drivers) {
    registerDrivers();
    const Messages messages;
    const GDALDriverH driver =
        GDALIdentifyDriverEx(files.path().c_str(), GDAL_OF_RASTER, drivers, files.names());
    return driver != nullptr ? GDALGetDriverShortName(driver) : "";
}

} // namespace

const char* const* readableDrivers() noexcept {
    return readable;
}

void registerDrivers() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

std::string readableDriverOf(const LentFiles& files) {
    return driverOf(files, readable);
}

std::string refusedDriverOf(const LentFiles& files) {
    return driverOf(files, refused);
}

} // namespace Tidewatch::Raster
