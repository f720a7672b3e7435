// SPDX-License-Identifier: Apache-2.0
//
// Output that cannot be written: Run() stays silent, and the written-files record tells.
#include "las/LasExport.hpp"

#include <csignal>
#include <functional>

#include <sys/resource.h>

namespace {

using Support::GridBuilder;
using Support::WrittenLas;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

class LasFailure : public LasExport, public ::testing::WithParamInterface<std::tuple<int, bool>> {
protected:
    LasFailure() {
        exporter.Version = std::get<0>(GetParam());
        exporter.uncompressed = std::get<1>(GetParam());
    }

    [[nodiscard]] std::string pathOf(const std::string& stem) const {
        return folder / (stem + (std::get<1>(GetParam()) ? ".las" : ".laz"));
    }

    /// Runs the exporter, which may not complain, without letting LASlib's messages through.
    void run() {
        ::testing::internal::CaptureStderr();
        EXPECT_TRUE(exporter.Run());
        messages = ::testing::internal::GetCapturedStderr();
        EXPECT_THAT(exporter.Errors, IsEmpty());
    }

    std::string messages;
};

TEST_P(LasFailure, FolderThatIsNotThereIsRecordedAsAFailedFile) {
    exporter.OutputPath = folder / "gone/cloud.las";
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(10))
        .field("Positions", "b", pointsOnALine(10));
    run();
    EXPECT_THAT(messages, ::testing::HasSubstr("cannot open"));
    ASSERT_EQ(exporter.writtenFiles().size(), 1U);
    EXPECT_TRUE(exporter.writtenFiles()[0].failed);
    EXPECT_EQ(exporter.writtenFiles()[0].items, 0U);
    EXPECT_EQ(exporter.writtenFiles()[0].bytes, 0U);
}

/// Does something at one of its calls.
class ActingProgress final : public Anchor::LoaderProgress {
public:
    ActingProgress(std::uint64_t when, std::function<void()> action)
        : when_(when),
          action_(std::move(action)) {}
    bool progress(const std::string&, std::uint64_t current, std::uint64_t) override {
        if (current == when_)
            action_();
        return true;
    }

private:
    std::uint64_t when_;
    std::function<void()> action_;
};

TEST_P(LasFailure, FolderThatDisappearsDuringTheRunIsRecorded) {
    for (const bool tiled : {false, true}) {
        Support::FilteringLasExporter one;
        fs::create_directory(folder / "out");
        one.bundleptr = bundle;
        one.OutputPath = folder / "out/cloud.las";
        one.Version = exporter.Version;
        one.uncompressed = exporter.uncompressed;
        one.tiles = tiled;
        one.Progress = Anchor::makeStrong<ActingProgress>(2U, [&] { fs::remove_all(folder / "out"); });
        if (!tiled)
            GridBuilder(*bundle, 0, "g")
                .field("Positions", "a", pointsOnALine(10))
                .field("Positions", "b", pointsOnALine(10))
                .field("Positions", "c", pointsOnALine(10));
        ::testing::internal::CaptureStderr();
        EXPECT_TRUE(one.Run());
        ::testing::internal::GetCapturedStderr();
        ASSERT_EQ(one.writtenFiles().size(), tiled ? 3U : 1U);
        for (const ConvLib::WrittenFile& file : one.writtenFiles())
            EXPECT_TRUE(file.failed) << file.path;
        EXPECT_FALSE(fs::exists(folder / "out"));
    }
}

TEST_P(LasFailure, FolderInThePlaceOfTheFileIsRecorded) {
    fs::create_directory(pathOf("cloud"));
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(10));
    run();
    ASSERT_EQ(exporter.writtenFiles().size(), 1U);
    EXPECT_TRUE(exporter.writtenFiles()[0].failed);
}

TEST_P(LasFailure, DeviceThatIsFullIsRecorded) {
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    fs::create_symlink("/dev/full", pathOf("cloud"));
    for (const std::size_t count : {0U, 10U, 100'000U}) {
        const auto own = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.bundleptr = own;
        GridBuilder(*own, 0, "g").field("Positions", "a", pointsOnALine(count));
        run();
        EXPECT_TRUE(exporter.writtenFiles().back().failed) << count << " points";
        EXPECT_EQ(exporter.writtenFiles().back().items, count);
    }
}

/// Exports in a process that may make files of `limit` bytes; ends it with 0 where the record says that the
/// file has failed.
[[noreturn]] void exportWithinLimit(Support::FilteringLasExporter& exporter, rlim_t limit) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit bound{limit, limit};
    const bool isBound = ::setrlimit(RLIMIT_FSIZE, &bound) == 0;
    const bool isSilent = exporter.Run() && exporter.Errors.empty();
    const auto& files = exporter.writtenFiles();
    const bool isRecorded = files.size() == 1 && files[0].failed && files[0].bytes > limit;
    std::_Exit(!isBound ? 2 : !isSilent ? 3 : !isRecorded ? 4 : 0);
}

TEST_P(LasFailure, DiskThatIsFullIsRecordedWhereverTheFileIsCutShort) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(60'000))
        .field("Reflectance", "a", std::vector<float>(60'000, 1.0F));
    run();
    const std::uint64_t whole = exporter.writtenFiles()[0].bytes;
    ASSERT_FALSE(exporter.writtenFiles()[0].failed);
    Support::writeBytes(pathOf("earlier"), "stays");
    // Nothing at all, within the header, within the points, the last byte.
    for (const std::uint64_t limit : {std::uint64_t{0}, std::uint64_t{100}, whole / 2, whole - 1}) {
        Support::FilteringLasExporter one;
        one.bundleptr = bundle;
        one.OutputPath = folder / "limited.las";
        one.Version = exporter.Version;
        one.uncompressed = exporter.uncompressed;
        EXPECT_EXIT(exportWithinLimit(one, limit), ::testing::ExitedWithCode(0), "")
            << limit << " of " << whole;
        EXPECT_LE(fs::file_size(pathOf("limited")), limit);
    }
    EXPECT_EQ(Support::readBytes(pathOf("earlier")), "stays");
}

TEST_P(LasFailure, FileThatIsCompleteIsNotRecordedAsFailed) {
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(10));
    run();
    EXPECT_EQ(messages, "");
    EXPECT_FALSE(exporter.writtenFiles()[0].failed);
    EXPECT_EQ(WrittenLas::read(pathOf("cloud")).count(), 10U);
}

INSTANTIATE_TEST_SUITE_P(, LasFailure, ::testing::Combine(::testing::Values(2, 3, 4), ::testing::Bool()),
                         [](const auto& one) {
                             return std::string(std::get<1>(one.param) ? "PlainVersion"
                                                                       : "CompressedVersion") +
                                    std::to_string(std::get<0>(one.param));
                         });

} // namespace
