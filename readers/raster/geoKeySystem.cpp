// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/geoKeySystem.hpp"

#include "anchor/Error.hpp"
#include "readers/apart/ApartSource.hpp"
#include "readers/apart/Channel.hpp"

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <sys/mman.h>

namespace Tidewatch {

namespace {

/// Used in messages in place of a file name.
constexpr const char* title = "GeoTIFF keys";

constexpr std::size_t maxBytes = std::size_t{256} << 10;

void append(std::vector<std::uint8_t>& bytes, std::uint64_t number, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

/// A TIFF file (TIFF 6.0, section 2): the head; the pixel at 8, padded to an even place; the directory of
/// tags, each a number, a type, a count, and the values or, if they take more than four bytes, their offset;
/// then those values.
std::vector<std::uint8_t> tiffOf(const GeoKeyBytes& keys) {
    struct Tag {
        std::uint16_t number;
        std::uint16_t type;
        std::size_t size;
        std::vector<std::uint8_t> values;
    };
    constexpr std::uint16_t bytesType = 2; // ASCII
    constexpr std::uint16_t shortsType = 3;
    constexpr std::uint16_t doublesType = 12;
    constexpr std::uint64_t pixelPlace = 8;
    constexpr std::uint64_t directoryPlace = 10;

    std::vector<Tag> tags;
    const auto addNumber = [&](std::uint16_t number, std::uint64_t value) {
        tags.push_back({number, shortsType, 2, {}});
        append(tags.back().values, value, 2);
    };
    const auto addBytes = [&](std::uint16_t number, std::uint16_t type, std::size_t size,
                              std::span<const std::uint8_t> values) {
        values = values.first(values.size() / size * size);
        if (!values.empty())
            tags.push_back({number, type, size, {values.begin(), values.end()}});
    };
    addNumber(256, 1);          // width
    addNumber(257, 1);          // height
    addNumber(258, 8);          // bits of a pixel
    addNumber(259, 1);          // not compressed
    addNumber(262, 1);          // 0 is black
    addNumber(273, pixelPlace); // where the pixel is
    addNumber(277, 1);          // numbers of a pixel
    addNumber(278, 1);          // rows there
    addNumber(279, 1);          // bytes there
    addBytes(34735, shortsType, 2, keys.directory);
    addBytes(34736, doublesType, 8, keys.doubles);
    addBytes(34737, bytesType, 1, keys.texts);

    constexpr std::size_t tagSize = 12;
    constexpr std::size_t inPlace = 4;
    std::vector<std::uint8_t> file{'I', 'I', 42, 0};
    append(file, directoryPlace, 4);
    append(file, 0, 2); // the pixel
    append(file, tags.size(), 2);
    std::uint64_t place = file.size() + tags.size() * tagSize + 4;
    std::vector<std::uint8_t> behind;
    for (Tag& tag : tags) {
        append(file, tag.number, 2);
        append(file, tag.type, 2);
        append(file, tag.values.size() / tag.size, 4);
        if (tag.values.size() <= inPlace) {
            tag.values.resize(inPlace);
            file.insert(file.end(), tag.values.begin(), tag.values.end());
        } else {
            append(file, place + behind.size(), 4);
            tag.values.resize(tag.values.size() + tag.values.size() % 2);
            behind.insert(behind.end(), tag.values.begin(), tag.values.end());
        }
    }
    append(file, 0, 4); // no further directory
    file.insert(file.end(), behind.begin(), behind.end());
    return file;
}

Apart::Descriptor inMemory(const std::vector<std::uint8_t>& bytes) {
    const auto require = [](bool succeeded) {
        if (!succeeded)
            throw Anchor::FileError(fmt::format("{}: a file in memory cannot be created: {}", title,
                                                std::generic_category().message(errno)));
    };
    Apart::Descriptor memory(::memfd_create("tidewatch", MFD_CLOEXEC));
    require(static_cast<bool>(memory));
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t put =
            ::pwrite(memory.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        require(put > 0 || (put < 0 && errno == EINTR));
        done += put > 0 ? static_cast<std::size_t>(put) : 0;
    }
    return memory;
}

} // namespace

bool canReadGeoKeys() noexcept {
#ifdef TIDEWATCH_RASTERS
    return true;
#else
    return false;
#endif
}

std::string systemOfGeoKeys(const GeoKeyBytes& keys) {
    if (keys.directory.size() + keys.doubles.size() + keys.texts.size() > maxBytes)
        throw Anchor::LimitError(fmt::format("{}: have more than {} bytes", title, maxBytes));
    const std::vector<std::uint8_t> bytes = tiffOf(keys);
    const Apart::Descriptor memory = inMemory(bytes);
    constexpr std::uint64_t maxMemory = std::uint64_t{1} << 20;
    SourceFiles files;
    files.path = title;
    files.files.push_back({"keys.tif", memory.get(), bytes.size()});
    const Structure structure = ApartSource(ModuleKind::Rasters, files, maxMemory).structure({});
    if (structure.slices.empty() || structure.slices.front().grids.empty() ||
        structure.slices.front().grids.front().charts.empty())
        throw Anchor::FormatError(fmt::format("{}: GDAL reports no grid", title));
    return structure.slices.front().grids.front().charts.front().referenceSystem;
}

} // namespace Tidewatch
