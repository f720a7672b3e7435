// SPDX-License-Identifier: Apache-2.0
#include "las/fileIsComplete.hpp"

#include "las/LasExport.hpp"
#include "las/lasHeader.hpp"

namespace {

using ExportLib::fileIsComplete;
using Support::WrittenLas;
namespace fs = std::filesystem;

struct FileIsComplete : LasExport {
    /// Writes a file of `count` points with the exporter.
    WrittenLas write(std::size_t count, int version, bool compressed) {
        EXPECT_TRUE(ExportLib::setVersion(header, version));
        exporter.bundleptr = bundle = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.Version = version;
        exporter.uncompressed = !compressed;
        path = folder / (compressed ? "cloud.laz" : "cloud.las");
        points = count;
        Support::GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(count));
        return exported(fs::path(path).filename());
    }

    /// Asks as one who knows no more of the size than the file system does.
    [[nodiscard]] bool isComplete() const {
        return fileIsComplete(path, fs::exists(path) ? fs::file_size(path) : 0, header, points);
    }

    [[nodiscard]] bool isCompleteWithin(std::uint64_t size) const {
        fs::resize_file(path, size);
        return isComplete();
    }

    [[nodiscard]] bool isCompleteWith(const std::string& bytes) const {
        Support::writeBytes(path, bytes);
        return isComplete();
    }

    static std::uint64_t tableBegin(const WrittenLas& file) {
        return file.at<std::uint64_t>(file.pointsBegin());
    }

    LASheader header;
    std::string path;
    std::uint64_t points = 0;
};

TEST_F(FileIsComplete, WholeFilesAreWhateverTheNumberOfPoints) {
    for (const int version : {2, 3, 4}) {
        for (const bool compressed : {false, true})
            for (const std::size_t count : {0U, 1U, 2U, 49'999U, 50'000U, 50'001U, 100'000U, 100'001U}) {
                write(count, version, compressed);
                EXPECT_TRUE(isComplete()) << path << ", LAS 1." << version << ", " << count << " points";
            }
    }
}

TEST_F(FileIsComplete, PlainFileIsNotWhereverItIsCut) {
    for (const std::size_t count : {0U, 3U}) {
        std::size_t size = write(count, 4, false).bytes.size();
        ++points;
        EXPECT_FALSE(isComplete()) << "a point more than there is";
        --points;
        while (size-- > 0)
            EXPECT_FALSE(isCompleteWithin(size)) << size << " bytes";
    }
}

TEST_F(FileIsComplete, CompressedFileIsNotWhereverItIsCut) {
    for (const std::size_t count : {0U, 3U, 50'001U}) {
        const WrittenLas file = write(count, 4, true);
        // What remains without the last of three zeros looks like an end with two.
        std::size_t size = file.bytes.size() - (count != 0 ? 1 : 0);
        while (size-- > 0)
            EXPECT_FALSE(isCompleteWithin(size)) << size << " of " << file.bytes.size();
    }
}

TEST_F(FileIsComplete, FileShorterThanItsWriterSaysIsNot) {
    for (const bool compressed : {false, true}) {
        const std::uint64_t size = write(3, 4, compressed).bytes.size();
        EXPECT_TRUE(fileIsComplete(path, size, header, points));
        EXPECT_FALSE(fileIsComplete(path, size + 1, header, points));
    }
}

TEST_F(FileIsComplete, CompressedFileWhoseTableHasNoProperPlaceIsNot) {
    const WrittenLas file = write(3, 4, true);
    const std::uint64_t begin = file.pointsBegin();
    for (const std::uint64_t place : {std::uint64_t{0}, begin - 1, begin, begin + 7, tableBegin(file) - 1,
                                      tableBegin(file) + 1, std::uint64_t{file.bytes.size() - 8},
                                      std::uint64_t{file.bytes.size() - 7}, std::uint64_t{file.bytes.size()},
                                      std::uint64_t{1} << 40, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        std::string bytes = file.bytes;
        Support::patch(bytes, begin, place);
        EXPECT_FALSE(isCompleteWith(bytes)) << place;
    }
}

TEST_F(FileIsComplete, CompressedFileWithAHoleForATableIsNot) {
    const WrittenLas file = write(3, 4, true);
    std::string bytes = file.bytes;
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(tableBegin(file)), bytes.end(), '\0');
    EXPECT_FALSE(isCompleteWith(bytes));
}

TEST_F(FileIsComplete, CompressedFileWithAnotherNumberOfChunksOrVersionOfTheTableIsNot) {
    const WrittenLas file = write(50'001, 2, true);
    EXPECT_TRUE(isComplete());
    for (const std::uint64_t other : {0U, 50'000U, 100'001U}) {
        points = other;
        EXPECT_FALSE(isComplete()) << other;
    }
    points = 50'001;
    std::string bytes = file.bytes;
    Support::patch(bytes, tableBegin(file), std::uint32_t{1});
    EXPECT_FALSE(isCompleteWith(bytes));
}

TEST_F(FileIsComplete, FileWithAHoleForAHeaderIsNot) {
    for (const bool compressed : {false, true}) {
        std::string bytes = write(3, 4, compressed).bytes;
        std::fill(bytes.begin(), bytes.begin() + 107, '\0');
        EXPECT_FALSE(isCompleteWith(bytes));
    }
}

TEST_F(FileIsComplete, MissingFileIsNotAndADeviceIs) {
    EXPECT_TRUE(ExportLib::setVersion(header, 4));
    path = folder / "cloud.laz";
    EXPECT_FALSE(isComplete());
    fs::create_symlink("/dev/null", path);
    EXPECT_TRUE(fileIsComplete(path, 1000, header, 3));
}

} // namespace
