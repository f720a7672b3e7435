// SPDX-License-Identifier: Apache-2.0
#include "las/LasBox.hpp"

#include "las/LasExport.hpp"

namespace {

using ExportLib::LasBox;
using Support::GridBuilder;
using Support::WrittenLas;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

/// Boxes of a grid with positions, which tests may add to, and what the boxes report.
struct LasBoxes : ::testing::Test {
    LasBoxes() { cloud.field("Positions", "a", LasExport::pointsOnALine(3)); }

    Anchor::StrongPtr<LasBox> make(const std::string& name, int version) {
        const Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds(new Geom::BoundingBox);
        for (const auto& point : LasExport::pointsOnALine(3))
            bounds->expand(point);
        return Anchor::makeStrong<LasBox>(
            5, 2024, bounds, *cloud.representation(), folder / name, version, 0,
            Anchor::StrongPtr<Sheaf::Grid>(&cloud.grid()),
            LasBox::Host{[this](const ConvLib::WrittenFile& file) { reports.push_back(file); }});
    }

    /// Fills the slots with positions and return numbers, and writes them.
    static void write(LasBox& box, const Bytes& returnNumbers) {
        box.slots().capture("Positions", Sheaf::makeArray(LasExport::pointsOnALine(returnNumbers.size())));
        box.slots().capture("ReturnNumber", Sheaf::makeArray(Bytes(returnNumbers)));
        box.writePoints(static_cast<std::uint32_t>(returnNumbers.size()));
        box.slots().clear();
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder cloud{*bundle, 0, "g"};
    std::vector<ConvLib::WrittenFile> reports;
};

TEST_F(LasBoxes, EachHasTheNextNumberWithAFileOrWithout) {
    const auto first = make("a.las", 4);
    const auto second = make("b.las", 9);
    const auto third = make("c.las", 2);
    EXPECT_EQ(second->number(), first->number() + 1);
    EXPECT_EQ(third->number(), first->number() + 2);
}

TEST_F(LasBoxes, HeaderIsCompleteAndTheFileOpenAsSoonAsTheBoxIsThere) {
    cloud.field("RGB", "a", std::vector<Geom::RGB<unsigned char>>(3))
        .field("Amplitude", "a", std::vector<float>(3))
        .field("Reflectance", "a", std::vector<float>(3));
    const auto box = make("a.laz", 4);
    EXPECT_EQ(box->header().point_data_format, 7);
    EXPECT_EQ(box->header().point_data_record_length, 42);
    EXPECT_EQ(box->header().max_x, 2.0);
    EXPECT_EQ(box->header().x_offset, 1.0);
    EXPECT_EQ(box->header().file_creation_day, 5);
    EXPECT_EQ(box->header().file_creation_year, 2024);
    EXPECT_EQ(box->amplitudeStart(), 0);
    EXPECT_EQ(box->reflectanceStart(), 2);
    EXPECT_TRUE(fs::exists(folder / "a.laz"));
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(LasBoxes, GridWithoutAttributesHasNoPlaceForThem) {
    const auto box = make("a.las", 3);
    EXPECT_EQ(box->amplitudeStart(), -1);
    EXPECT_EQ(box->reflectanceStart(), -1);
    EXPECT_EQ(box->header().point_data_record_length, 28);
}

TEST_F(LasBoxes, UnknownVersionKeepsTheNewHeaderAndTakesNoPointsAndReportsNothing) {
    for (const int version : {-1, 0, 1, 5}) {
        auto box = make("a.las", version);
        EXPECT_EQ(box->header().version_minor, 2);
        EXPECT_EQ(box->header().point_data_record_length, 20);
        EXPECT_EQ(box->header().x_scale_factor, 0.01);
        EXPECT_EQ(box->header().file_creation_year, 0);
        write(*box, {99, 99});
        box.reset();
    }
    EXPECT_THAT(console.messages, IsEmpty());
    EXPECT_THAT(reports, IsEmpty());
    EXPECT_FALSE(fs::exists(folder / "a.las"));
}

TEST_F(LasBoxes, LastHolderFinishesTheFileWithTheCountsOfAllFragments) {
    for (const int version : {2, 3, 4}) {
        reports.clear();
        auto box = make("a.las", version);
        write(*box, {1, 2, 2});
        write(*box, {5, 7, 9, 0});
        auto other = box;
        box.reset();
        EXPECT_THAT(reports, IsEmpty());
        other.reset();
        ASSERT_EQ(reports.size(), 1U);
        const WrittenLas file = WrittenLas::read(folder / "a.las");
        EXPECT_EQ(file.count(), 7U);
        // The places behind the fifth count in LAS 1.4 only; they never reach other fields of old headers.
        if (version == 4) {
            EXPECT_THAT(file.countsByReturn(), ElementsAre(1, 2, 0, 0, 1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0));
        } else {
            EXPECT_THAT(file.countsByReturn(), ElementsAre(1, 2, 0, 0, 1));
        }
        EXPECT_EQ(file.upper(0), 2);
        EXPECT_EQ(reports[0].items, 7U);
        EXPECT_EQ(reports[0].bytes, file.bytes.size());
        EXPECT_FALSE(reports[0].failed);
    }
}

TEST_F(LasBoxes, FileThatCannotBeMadeTakesPointsSilentlyAndIsReportedOnce) {
    ::testing::internal::CaptureStderr();
    auto box = make("gone/a.las", 4);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::HasSubstr("gone/a.las"));
    write(*box, {1, 99});
    box.reset();
    EXPECT_THAT(console.messages, IsEmpty());
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].path, folder / "gone/a.las");
    EXPECT_EQ(reports[0].items, 0U);
    EXPECT_TRUE(reports[0].failed);
}

TEST_F(LasBoxes, AttributeIsStoredOnlyWhereTheHeaderHasAPlaceForIt) {
    auto box = make("a.las", 4);
    box->slots().capture("Reflectance", Sheaf::makeArray(std::vector<float>(3, 1.0F)));
    box->slots().capture("Amplitude", Sheaf::makeArray(std::vector<unsigned short>(3, 7)));
    write(*box, {1, 1, 1});
    box.reset();
    EXPECT_EQ(WrittenLas::read(folder / "a.las").recordLength(), 30U);
    EXPECT_EQ(WrittenLas::read(folder / "a.las").records().size(), 3U);
}

} // namespace
