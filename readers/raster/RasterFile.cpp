// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterFile.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/raster/Messages.hpp"
#include "readers/raster/Untouched.hpp"
#include "readers/raster/drivers.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cpl_conv.h>
#include <cpl_string.h>
#include <filesystem>
#include <gdal_priv.h>
#include <iterator>
#include <memory>
#include <ogr_srs_api.h>
#include <optional>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

namespace Tidewatch::Raster {

namespace {

/// The element type for a band's numbers; null if there is none.
const std::type_info* elementOf(GDALDataType type) {
    const std::type_info* element = nullptr;
    Sheaf::ElementTypes::visitFirst(
        [type](auto tag) {
            constexpr GDALDataType candidate = pixelType<typename decltype(tag)::type>;
            return candidate != GDT_Unknown && candidate == type;
        },
        [&](auto tag) { element = &typeid(typename decltype(tag)::type); });
    // Signed numbers of fewer than 32 bits are widened: exporters have no writer for them.
    if (type == GDT_Int16)
        element = &typeid(int);
#if GDAL_VERSION_NUM >= GDAL_COMPUTE_VERSION(3, 7, 0)
    if (type == GDT_Int8)
        element = &typeid(int);
#endif
    return element;
}

/// A format whose files store every pixel separately, uncompressed.
struct PlainLayout {
    std::string_view driver;
    /// The min bytes of a pixel of a band; 0 stands for the size of its type.
    double minBytes;
};

constexpr PlainLayout plainLayouts[] = {
    {"ENVI", 0},     {"PNM", 0},
    {"BT", 0},       {"GSBG", 0},
    {"GS7BG", 0},    {"DTED", 0},
    {"EHdr", 0.125}, // bits may be packed
    {"AAIGrid", 1},  {"GRASSASCIIGrid", 1},
    {"GSAG", 1},     {"ZMap", 1},
};

/// The min size of a file that contains every byte of every pixel, including header and interleaving; nothing
/// if the driver does not report the layout.
std::optional<double> endOfPixels(GDALDatasetH handle) {
    GDALDataset& dataset = *GDALDataset::FromHandle(handle);
    GDALDataset::RawBinaryLayout layout;
    if (!dataset.GetRawBinaryLayout(layout))
        return {};
    // For pixels that share bytes, the layout is reported as if they did not.
    if (dataset.GetRasterBand(1)->GetMetadataItem("NBITS", "IMAGE_STRUCTURE") != nullptr)
        return {};
    const auto reach = [](GIntBig step, int count) {
        return step > 0 ? static_cast<double>(step) * (count - 1) : 0.0;
    };
    return static_cast<double>(layout.nImageOffset) + reach(layout.nPixelOffset, dataset.GetRasterXSize()) +
           reach(layout.nLineOffset, dataset.GetRasterYSize()) +
           reach(layout.nBandOffset, dataset.GetRasterCount()) + GDALGetDataTypeSizeBytes(layout.eDataType);
}

/// Turns libjpeg's warnings into errors, for its lifetime and on this thread: one of them says that a file
/// ends too early, in which case missing pixels are read as grey.
class StrictJpeg {
    CPLConfigOptionSetter setter_{"GDAL_ERROR_ON_LIBJPEG_WARNING", "YES", false};
};

/// Makes GDAL report the vertical system of GeoTIFF 1.0 keys as well, for its lifetime and on this thread.
class WithVertical {
    CPLConfigOptionSetter setter_{"GTIFF_REPORT_COMPD_CS", "YES", false};
};

/// Fixes units of GeoTIFF systems in which some releases of GDAL swap authority and code: ID["9003","EPSG"].
std::string withOrderedIds(std::string text) {
    constexpr std::string_view start = "ID[\"";
    constexpr std::string_view end = "\",\"EPSG\"]";
    for (std::size_t place = text.find(start); place != std::string::npos;
         place = text.find(start, place + start.size())) {
        const std::size_t code = place + start.size();
        const std::size_t codeEnd = text.find_first_not_of("0123456789", code);
        if (codeEnd == code || text.compare(std::min(codeEnd, text.size()), end.size(), end) != 0)
            continue;
        text.replace(place, codeEnd + end.size() - place,
                     fmt::format("ID[\"EPSG\",{}]", text.substr(code, codeEnd - code)));
    }
    return text;
}

bool hasTiffSignature(int descriptor) {
    std::array<char, 4> head{};
    if (::pread(descriptor, head.data(), head.size(), 0) != static_cast<ssize_t>(head.size()))
        return false;
    const std::string_view text(head.data(), head.size());
    // TIFF 6.0, section 2, and BigTIFF.
    using namespace std::string_view_literals;
    return text == "II*\0"sv || text == "MM\0*"sv || text == "II+\0"sv || text == "MM\0+"sv;
}

} // namespace

void RasterFile::Close::operator()(GDALDatasetH dataset) const {
    const Messages messages;
    GDALClose(dataset);
}

RasterFile::RasterFile(const SourceFiles& files)
    : path_(files.path),
      size_(files.files.front().size),
      lent_(files) {
    const std::string recognised = readableDriverOf(lent_);
    if (recognised.empty()) {
        if (const std::string driver = refusedDriverOf(lent_); !driver.empty())
            fail("is of GDAL's format " + driver + ", whose files refer to other files, so it is not read");
        fail("is not a raster of a format that is read");
    }
    CPLStringList names;
    for (const SourceFiles::File& file : files.files) {
        // GDAL would open a mask with any driver that recognises it.
        if (EQUAL(std::filesystem::path(file.name).extension().c_str(), ".msk") &&
            !hasTiffSignature(file.descriptor))
            fail("its mask " +
                 Anchor::printable(std::filesystem::path(path_).replace_filename(file.name).string()) +
                 " is not a TIFF file");
        names.AddString(file.name.c_str());
    }
    const Messages messages;
    const StrictJpeg strict;
    const WithVertical vertical;
    dataset_.reset(GDALOpenEx(lent_.path().c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR,
                              readableDrivers(), nullptr, names.List()));
    // Points in text are recognised before it is known that they lie on a grid.
    if (!dataset_ && recognised == "XYZ")
        fail("cannot be read; text points are read on a regular grid only", messages);
    if (!dataset_)
        fail("cannot be read", messages);
}

void RasterFile::fail(const std::string& what, const Messages& messages) const {
    if (const int reason = lent_.failure(); reason != 0)
        throw Anchor::FileError(fmt::format("{}: cannot read: {}", Anchor::printable(path_),
                                            std::generic_category().message(reason)));
    if (messages.isOutOfMemory())
        throw Anchor::LimitError(fmt::format("{}: {}: there is not enough memory: {}",
                                             Anchor::printable(path_), what, messages.failure()));
    fail(what + ": " + messages.failure());
}

void RasterFile::fail(const std::string& reason) const {
    throw Anchor::FormatError(fmt::format("{}: {}", Anchor::printable(path_), reason));
}

std::uint64_t RasterFile::width() const {
    return static_cast<std::uint64_t>(GDALGetRasterXSize(dataset_.get()));
}

std::uint64_t RasterFile::height() const {
    return static_cast<std::uint64_t>(GDALGetRasterYSize(dataset_.get()));
}

GDALRasterBandH RasterFile::bandOf(std::size_t band) const {
    return GDALGetRasterBand(dataset_.get(), static_cast<int>(band) + 1);
}

Description RasterFile::describe() const {
    const Messages messages;
    const WithVertical vertical;
    Description description;
    description.driver = GDALGetDriverShortName(GDALGetDatasetDriver(dataset_.get()));
    description.width = width();
    description.height = height();
    const int bands = GDALGetRasterCount(dataset_.get());
    if (bands < 1)
        fail("holds no band");
    // GDAL opens a file in a time that is proportional to its bands, and the file is opened for each of them.
    constexpr int maxBands = 4096;
    if (bands > maxBands)
        fail(fmt::format("has {} bands, and no more than {} are read", bands, maxBands));
    for (std::size_t band = 0; band < static_cast<std::size_t>(bands); ++band)
        description.bands.push_back(describeBand(band));
    description.blockBytes = requireFittingBlocks();
    requireWholeFile(description);

    std::array<double, 6> numbers{};
    std::optional<std::array<double, 6>> transform;
    if (GDALGetGeoTransform(dataset_.get(), numbers.data()) == CE_None)
        transform = numbers;
    description.placing = Placing::make(transform, description.width, description.height, path_);
    description.referenceSystem = referenceSystem();
    description.notCarried = notCarried();
    if (description.referenceSystem.empty() && GDALGetSpatialRef(dataset_.get()) != nullptr)
        description.notCarried.insert(description.notCarried.begin(), "coordinate reference system");
    return description;
}

/// Checks the size of blocks, and returns it: GDAL allocates memory for a whole block, whatever the raster's
/// size.
std::uint64_t RasterFile::requireFittingBlocks() const {
    const int bands = GDALGetRasterCount(dataset_.get());
    const auto* const interleave = GDALGetMetadataItem(dataset_.get(), "INTERLEAVE", "IMAGE_STRUCTURE");
    const bool areTogether = interleave != nullptr && EQUAL(interleave, "PIXEL");
    double pixelBytes = 0;
    double blockBytes = 0;
    for (std::size_t number = 0; number < static_cast<std::size_t>(bands); ++number) {
        int blockWidth = 0;
        int blockHeight = 0;
        GDALGetBlockSize(bandOf(number), &blockWidth, &blockHeight);
        const int bytes = GDALGetDataTypeSizeBytes(GDALGetRasterDataType(bandOf(number)));
        pixelBytes += bytes;
        blockBytes = std::max(blockBytes, 1.0 * blockWidth * blockHeight * bytes * (areTogether ? bands : 1));
    }
    const double fileBytes = pixelBytes * static_cast<double>(width()) * static_cast<double>(height());
    // Small rasters may have blocks that are larger than the raster, but not much larger.
    constexpr double harmless = 1U << 28U;
    if (blockBytes > std::max(harmless, 4 * fileBytes))
        fail(fmt::format("has blocks of {:.0f} bytes for {:.0f} bytes of pixels", blockBytes, fileBytes));
    // Width and height are below 2^31, so only absurd files exceed 64 bits.
    return blockBytes < 0x1p63 ? static_cast<std::uint64_t>(blockBytes) : std::uint64_t{1} << 63U;
}

/// Checks what the header of an uncompressed file states against the file's size, so that no memory is
/// allocated for pixels that cannot exist. GDAL's driver also reads the missing pixels of a truncated ENVI
/// file as 0.
void RasterFile::requireWholeFile(const Description& description) const {
    const auto* const layout =
        std::find_if(std::begin(plainLayouts), std::end(plainLayouts),
                     [&](const PlainLayout& known) { return description.driver == known.driver; });
    if (layout == std::end(plainLayouts))
        return;
    double stated = 0;
    for (std::size_t number = 0; number < description.bands.size(); ++number)
        stated += layout->minBytes != 0 ? layout->minBytes
                                        : GDALGetDataTypeSizeBytes(GDALGetRasterDataType(bandOf(number)));
    stated *= static_cast<double>(width()) * static_cast<double>(height());
    stated = std::max(stated, endOfPixels(dataset_.get()).value_or(0));
    if (static_cast<double>(size_) < stated)
        fail(fmt::format("ends too early: it has {} bytes, and what its header states takes {:.0f} at least",
                         size_, std::ceil(stated)));
}

Band RasterFile::describeBand(std::size_t number) const {
    const GDALRasterBandH band = bandOf(number);
    const GDALDataType type = GDALGetRasterDataType(band);
    const std::type_info* const element = elementOf(type);
    if (element == nullptr)
        fail(fmt::format("band {} holds numbers of type {}, which is not read", number + 1,
                         GDALGetDataTypeName(type)));
    if (type == GDT_Byte) {
        // Before GDAL 3.7, signed bytes are unsigned bytes with this metadata.
        const char* const remark = GDALGetMetadataItem(band, "PIXELTYPE", "IMAGE_STRUCTURE");
        if (remark != nullptr && EQUAL(remark, "SIGNEDBYTE"))
            return {&typeid(int), type, true};
    }
    return {element, type, false};
}

/// The unsigned byte of a negative no-data value of a band of signed bytes; GDAL, which reports such bytes as
/// unsigned, does not mask it.
std::optional<unsigned char> RasterFile::negativeByte(std::size_t number) const {
    if (!describeBand(number).isSignedByte)
        return {};
    int isThere = 0;
    const double noData = GDALGetRasterNoDataValue(bandOf(number), &isThere);
    if (isThere == 0 || !(noData >= -128 && noData < 0) || noData != std::trunc(noData))
        return {};
    return static_cast<unsigned char>(static_cast<int>(noData) + 256);
}

std::string RasterFile::referenceSystem() const {
    const OGRSpatialReferenceH system = GDALGetSpatialRef(dataset_.get());
    if (system == nullptr)
        return {};
    // The max length; real systems have some kilobytes.
    constexpr std::size_t longest = std::size_t{1} << 20;
    const char* const options[]{"FORMAT=WKT2_2019", "MULTILINE=NO", nullptr};
    char* text = nullptr;
    const OGRErr error = OSRExportToWktEx(system, &text, options);
    const std::unique_ptr<char, decltype(&VSIFree)> owner(text, &VSIFree);
    if (error != OGRERR_NONE || text == nullptr || std::string_view(text).size() > longest)
        return {};
    return withOrderedIds(text);
}

std::vector<std::string> RasterFile::notCarried() const {
    bool hasColorTable = false;
    bool hasScale = false;
    bool hasUnit = false;
    bool hasName = false;
    for (std::size_t number = 0; number < static_cast<std::size_t>(GDALGetRasterCount(dataset_.get()));
         ++number) {
        const GDALRasterBandH band = bandOf(number);
        hasColorTable = hasColorTable || GDALGetRasterColorTable(band) != nullptr;
        hasScale =
            hasScale || GDALGetRasterScale(band, nullptr) != 1 || GDALGetRasterOffset(band, nullptr) != 0;
        hasUnit = hasUnit || *GDALGetRasterUnitType(band) != '\0';
        hasName = hasName || *GDALGetDescription(band) != '\0';
    }
    const auto hasMetadata = [&](const char* domain) {
        return CSLCount(GDALGetMetadata(dataset_.get(), domain)) > 0;
    };
    std::vector<std::string> list;
    const auto add = [&](bool there, const char* what) {
        if (there)
            list.emplace_back(what);
    };
    add(GDALGetGCPCount(dataset_.get()) > 0, "ground control points");
    add(hasMetadata("RPC"), "rational polynomial coefficients");
    add(hasMetadata("SUBDATASETS"), "further images");
    add(hasColorTable, "colour table");
    add(hasScale, "scale and offset of values");
    add(hasUnit, "unit of values");
    add(hasName, "names of bands");
    return list;
}

/// How many rows to read at a time: enough to make calls rare, few enough for frequent progress and a small
/// buffer, and whole blocks of the file where possible.
RasterFile::Step RasterFile::stepOf(GDALRasterBandH band, std::size_t pixelSize) const {
    const std::uint64_t pixels = ArrayMemory::goodPiece / pixelSize;
    const std::uint64_t rows = std::clamp<std::uint64_t>(pixels / width(), 1, height());
    int blockWidth = 0;
    int blockHeight = 0;
    GDALGetBlockSize(band, &blockWidth, &blockHeight);
    const auto block = static_cast<std::uint64_t>(std::max(blockHeight, 1));
    if (block <= rows)
        return {rows - rows % block, true};
    return {rows, rows == height()};
}

/// Drops the blocks that GDAL has read. It would keep them until its own cache is full, which is not aware of
/// ours.
void RasterFile::forgetBlocks() const {
    const Messages messages;
    GDALFlushCache(dataset_.get());
}

void RasterFile::readRows(GDALRasterBandH band, std::uint64_t firstRow, std::uint64_t rows, GDALDataType type,
                          std::span<std::byte> pixels, std::size_t pixelSize, const std::string& name) const {
    const Messages messages;
    const StrictJpeg strict;
    const auto columns = static_cast<int>(width());
    const auto count = static_cast<int>(rows);
    const auto pixelSpace = static_cast<GSpacing>(pixelSize);
    if (GDALRasterIOEx(band, GF_Read, 0, static_cast<int>(firstRow), columns, count, pixels.data(), columns,
                       count, type, pixelSpace, pixelSpace * columns, nullptr) != CE_None)
        fail(name + " cannot be read", messages);
    // Some drivers return zeros for what cannot be read.
    if (lent_.failure() != 0)
        fail(name, messages);
}

void RasterFile::readBand(std::size_t band, GDALDataType type, std::size_t pixelSize, const RowTarget& target,
                          const Tick& tick) const {
    const GDALRasterBandH source = bandOf(band);
    const Step step = stepOf(source, pixelSize);
    for (std::uint64_t row = 0; row < height(); row += step.rows) {
        tick(static_cast<double>(row) / static_cast<double>(height()));
        const std::uint64_t rows = std::min(step.rows, height() - row);
        const std::span<std::byte> piece = target.memory(row, rows);
        const std::string name = fmt::format("band {}", band + 1);
        readRows(source, row, rows, type, piece, pixelSize, name);
        if (Untouched::isSuspected(piece)) {
            forgetBlocks();
            const Untouched again;
            std::vector<std::byte> second(piece.size());
            readRows(source, row, rows, type, second, pixelSize, name);
            if (!std::equal(piece.begin(), piece.end(), second.begin()))
                fail(name + " cannot be read: GDAL gives values that are not in the file");
            forgetBlocks();
        }
        target.filled();
        if (step.isWholeBlocks)
            forgetBlocks();
    }
    tick(1);
}

bool RasterFile::readValidity(const RowTarget& target, const Tick& tick) const {
    // A mask of the whole file (such as an alpha band) applies to all bands; a band's no-data value applies
    // to that band.
    GDALRasterBandH maskOfAll = nullptr;
    struct Mask {
        GDALRasterBandH source;
        /// The byte of a pixel that has no value.
        unsigned char noData;
    };
    std::vector<Mask> masks;
    bool someBandHasNone = false;
    {
        const Messages messages;
        for (std::size_t number = 0; number < static_cast<std::size_t>(GDALGetRasterCount(dataset_.get()));
             ++number) {
            const GDALRasterBandH band = bandOf(number);
            const int flags = GDALGetMaskFlags(band);
            if (const auto noData = negativeByte(number))
                masks.push_back({band, *noData});
            else if ((flags & GMF_ALL_VALID) != 0)
                someBandHasNone = someBandHasNone || GDALGetRasterColorInterpretation(band) != GCI_AlphaBand;
            else if ((flags & GMF_PER_DATASET) != 0)
                maskOfAll = GDALGetMaskBand(band);
            else
                masks.push_back({GDALGetMaskBand(band), 0});
        }
    }
    const bool isAllValid = maskOfAll == nullptr && masks.empty();
    const Step step = stepOf(bandOf(0), 1);
    std::vector<unsigned char> mask(isAllValid ? 0 : step.rows * width());
    std::vector<unsigned char> some;
    bool differ = false;
    for (std::uint64_t row = 0; row < height(); row += step.rows) {
        tick(static_cast<double>(row) / static_cast<double>(height()));
        const std::uint64_t rows = std::min(step.rows, height() - row);
        const std::span<std::byte> memory = target.memory(row, rows);
        const std::span<unsigned char> all(reinterpret_cast<unsigned char*>(memory.data()), memory.size());
        std::fill(all.begin(), all.end(), static_cast<unsigned char>(1));
        if (isAllValid) {
            target.filled();
            continue;
        }
        some.assign(all.size(), someBandHasNone ? 1 : 0);
        const auto read = [&](GDALRasterBandH source, unsigned char noData, auto&& use) {
            readRows(source, row, rows, GDT_Byte, std::as_writable_bytes(std::span(mask)), 1, "the mask");
            for (std::size_t pixel = 0; pixel < all.size(); ++pixel)
                use(pixel, mask[pixel] != noData);
        };
        for (const Mask& ofBand : masks) {
            read(ofBand.source, ofBand.noData, [&](std::size_t pixel, bool has) {
                all[pixel] = all[pixel] != 0 && has ? 1 : 0;
                some[pixel] = some[pixel] != 0 || has ? 1 : 0;
            });
        }
        if (!masks.empty())
            differ = differ || !std::equal(all.begin(), all.end(), some.begin());
        if (maskOfAll != nullptr)
            read(maskOfAll, 0,
                 [&](std::size_t pixel, bool has) { all[pixel] = all[pixel] != 0 && has ? 1 : 0; });
        target.filled();
        if (step.isWholeBlocks)
            forgetBlocks();
    }
    tick(1);
    return differ;
}

} // namespace Tidewatch::Raster
