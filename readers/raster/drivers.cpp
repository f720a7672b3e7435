// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/drivers.hpp"

#include "readers/raster/Messages.hpp"

#include <filesystem>
#include <gdal.h>
#include <mutex>
#include <string_view>
#include <system_error>

namespace Tidewatch::Raster {

namespace {

constexpr const char* readable[] = {
    "GTiff", "AAIGrid", "GRASSASCIIGrid", "EHdr", "ENVI", "SRTMHGT", "USGSDEM", "DTED", "GSAG", "GSBG",
    "GS7BG", "XYZ",     "ZMap",           "BT",   "PNG",  "JPEG",    "WEBP",    "GIF",  "BMP",  "JP2OpenJPEG",
    "PNM",   nullptr};

constexpr const char* refused[] = {"VRT", "WMS", "WMTS", "WCS", "HFA", "MRF", "ERS", "TIL", "DIMAP", nullptr};

void registerDrivers() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

std::string driverOf(const std::string& path, const char* const* drivers) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return {};
    registerDrivers();
    const Messages messages;
    const GDALDriverH driver =
        GDALIdentifyDriverEx(plainPath(path).c_str(), GDAL_OF_RASTER, drivers, nullptr);
    return driver != nullptr ? GDALGetDriverShortName(driver) : "";
}

} // namespace

const char* const* readableDrivers() noexcept {
    return readable;
}

std::string plainPath(const std::string& path) {
    // GDAL gives a meaning of its own to names such as "VRT://..." and to the folders /vsicurl, /vsizip, ...
    std::string absolute = std::filesystem::absolute(path).string();
    if (std::string_view(absolute).starts_with("/vsi"))
        absolute.insert(0, "/.");
    return absolute;
}

std::string readableDriverOf(const std::string& path) {
    return driverOf(path, readable);
}

std::string refusedDriverOf(const std::string& path) {
    return driverOf(path, refused);
}

} // namespace Tidewatch::Raster
