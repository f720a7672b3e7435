// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/raster/Description.hpp"
#include "readers/raster/LentFiles.hpp"
#include "readers/raster/Messages.hpp"
#include "readers/source/Source.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gdal.h>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch::Raster {

/// GDAL's type of the numbers that are read as elements of type T; GDT_Unknown if there is none.
template <class T>
inline constexpr GDALDataType pixelType = GDT_Unknown;
template <>
inline constexpr GDALDataType pixelType<unsigned char> = GDT_Byte;
template <>
inline constexpr GDALDataType pixelType<unsigned short> = GDT_UInt16;
template <>
inline constexpr GDALDataType pixelType<unsigned int> = GDT_UInt32;
template <>
inline constexpr GDALDataType pixelType<unsigned long long> = GDT_UInt64;
template <>
inline constexpr GDALDataType pixelType<int> = GDT_Int32;
template <>
inline constexpr GDALDataType pixelType<long long> = GDT_Int64;
template <>
inline constexpr GDALDataType pixelType<float> = GDT_Float32;
template <>
inline constexpr GDALDataType pixelType<double> = GDT_Float64;

/// Takes the rows of a raster piece after piece, in the file's order.
struct RowTarget {
    /// Memory for some rows.
    std::function<std::span<std::byte>(std::uint64_t firstRow, std::uint64_t rows)> memory;
    /// The rows are in the memory given last.
    std::function<void()> filled;
};

/// A raster that is open for reading, by one thread at a time.
class RasterFile {
public:
    /// Called with the share that is done, 0 to 1; may throw to stop.
    using Tick = std::function<void(double share)>;

    /// Opens the first of some files with one of readableDrivers(); GDAL sees these files and no other.
    /// Throws Anchor::FormatError naming the file and what is wrong, Anchor::FileError when the system cannot
    /// read, Anchor::LimitError when memory runs out, as all other operations do.
    explicit RasterFile(const SourceFiles& files);

    /// The file's metadata. Throws Anchor::FormatError for what cannot be a grid: no bands, a rotation,
    /// complex numbers, thousands of bands.
    [[nodiscard]] Description describe() const;

    /// Reads a band, counted from 0, in the file's order of rows and columns. T is the element type that
    /// describe() gives for it. Throws Anchor::FormatError.
    template <class T>
    requires(pixelType<T> != GDT_Unknown) void readBand(std::size_t band, const RowTarget& target,
                                                        const Tick& tick) const {
        if constexpr (pixelType<T> == GDT_Int32) {
            if (describeBand(band).isSignedByte) {
                std::span<std::byte> memory;
                const auto give = [&](std::uint64_t row, std::uint64_t rows) {
                    return memory = target.memory(row, rows);
                };
                const auto signBytes = [&] {
                    const std::span<T> values(reinterpret_cast<T*>(memory.data()), memory.size() / sizeof(T));
                    std::for_each(values.begin(), values.end(),
                                  [](T& value) { value -= value > 127 ? 256 : 0; });
                    target.filled();
                };
                readBand(band, pixelType<T>, sizeof(T), {give, signBytes}, tick);
                return;
            }
        }
        readBand(band, pixelType<T>, sizeof(T), target, tick);
    }

    /// Reads which pixels are valid: one byte per pixel in the file's order, 1 where every band has a value,
    /// else 0. Returns whether bands differ, that is, whether some bands have a value at a pixel where others
    /// do not. Throws Anchor::FormatError.
    bool readValidity(const RowTarget& target, const Tick& tick) const;

private:
    struct Close {
        void operator()(GDALDatasetH dataset) const;
    };

    [[noreturn]] void fail(const std::string& reason) const;
    /// The same with GDAL's message; or the underlying error of the system or of memory.
    [[noreturn]] void fail(const std::string& what, const Messages& messages) const;
    [[nodiscard]] std::uint64_t width() const;
    [[nodiscard]] std::uint64_t height() const;
    [[nodiscard]] GDALRasterBandH bandOf(std::size_t band) const;
    [[nodiscard]] Band describeBand(std::size_t number) const;
    [[nodiscard]] std::optional<unsigned char> negativeByte(std::size_t number) const;
    [[nodiscard]] std::string referenceSystem() const;
    [[nodiscard]] std::vector<std::string> notCarried() const;
    void readBand(std::size_t band, GDALDataType type, std::size_t pixelSize, const RowTarget& target,
                  const Tick& tick) const;
    [[nodiscard]] std::uint64_t requireFittingBlocks() const;
    void requireWholeFile(const Description& description) const;
    struct Step {
        std::uint64_t rows;
        bool isWholeBlocks;
    };
    [[nodiscard]] Step stepOf(GDALRasterBandH band, std::size_t pixelSize) const;
    void forgetBlocks() const;
    void readRows(GDALRasterBandH band, std::uint64_t firstRow, std::uint64_t rows, GDALDataType type,
                  std::span<std::byte> pixels, std::size_t pixelSize, const std::string& name) const;

    std::string path_;
    std::uint64_t size_;
    LentFiles lent_;
    std::unique_ptr<void, Close> dataset_; // after the files
};

} // namespace Tidewatch::Raster
