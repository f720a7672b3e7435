// SPDX-License-Identifier: Apache-2.0
//
// The exporter on a library that keeps output errors to itself and may end the process, as LASlib does.
#include "las/LasExport.hpp"
#include "lasmessage.hpp"
#include "standin.hpp"

#include <cstdlib>

namespace {

using Support::GridBuilder;
namespace fs = std::filesystem;

class LaslibStandin : public LasExport, public ::testing::WithParamInterface<std::tuple<int, bool>> {
protected:
    LaslibStandin() {
        exporter.Version = std::get<0>(GetParam());
        exporter.uncompressed = std::get<1>(GetParam());
        GridBuilder(*bundle, 0, "g")
            .field("Positions", "a", pointsOnALine(60'000))
            .field("Amplitude", "a", std::vector<float>(60'000, 1.0F))
            .field("Reflectance", "a", std::vector<float>(60'000, 1.0F))
            .field("RGB", "a", std::vector<Geom::RGB<unsigned char>>(60'000));
    }

    /// Exports onto a disk with room for so many bytes.
    ConvLib::WrittenFile run(std::optional<std::uint64_t> room) {
        Support::FilteringLasExporter one;
        one.bundleptr = bundle;
        one.OutputPath = exporter.OutputPath;
        one.Version = exporter.Version;
        one.uncompressed = exporter.uncompressed;
        Standin::room = room;
        EXPECT_TRUE(one.Run());
        EXPECT_EQ(one.writtenFiles().size(), 1U);
        return one.writtenFiles().at(0);
    }
};

TEST_P(LaslibStandin, FileIsRecordedAsCompleteOnlyWhenAllOfItFindsRoom) {
    const ConvLib::WrittenFile whole = run(std::nullopt);
    EXPECT_FALSE(whole.failed);
    EXPECT_EQ(whole.bytes, fs::file_size(whole.path));
    EXPECT_EQ(whole.items, 60'000U);
    EXPECT_FALSE(run(whole.bytes).failed);
    // Nothing at all, within the header, all but a point, all but a few bytes of a chunk table.
    for (const std::uint64_t room :
         {std::uint64_t{0}, std::uint64_t{100}, whole.bytes / 2, whole.bytes - 50, whole.bytes - 6}) {
        const ConvLib::WrittenFile file = run(room);
        EXPECT_TRUE(file.failed) << room << " of " << whole.bytes;
        EXPECT_EQ(fs::file_size(file.path), room);
        // As the library tells it: no sign of what is missing.
        EXPECT_EQ(file.bytes, room);
    }
}

TEST_P(LaslibStandin, HaltingIsOffBeforeAnythingMayHalt) {
    const auto exportWhileHalting = [&](const std::string& path) {
        halt_on_error(true);
        exporter.OutputPath = path;
        exporter.Run();
        std::_Exit(exporter.writtenFiles().size() == 1 ? 0 : 2);
    };
    EXPECT_EXIT(exportWhileHalting(folder / "cloud.las"), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(exportWhileHalting(folder / "gone/cloud.las"), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(, LaslibStandin, ::testing::Combine(::testing::Values(2, 3, 4), ::testing::Bool()),
                         [](const auto& one) {
                             return std::string(std::get<1>(one.param) ? "Plain1_" : "Compressed1_") +
                                    std::to_string(std::get<0>(one.param));
                         });

} // namespace
