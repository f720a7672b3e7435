// SPDX-License-Identifier: Apache-2.0
#include "library/check/found.hpp"
#include "support/systemReason.hpp"

#include <cerrno>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(CheckReport, FindingsOfOneKindAndSeverityBecomeOneWithThePlaceOfTheFirst) {
    CheckReport report("a");
    report.note("values", "line 1", "first");
    report.fault("values", "line 2", "second");
    report.fault("values", "line 3", "third", 4);
    ASSERT_EQ(report.findings().size(), 2U);
    EXPECT_EQ(report.findings()[0].place, "line 2");
    EXPECT_EQ(report.findings()[0].message, "second");
    EXPECT_EQ(report.findings()[0].count, 5U);
    EXPECT_EQ(report.findings()[1].count, 1U);
}

TEST(CheckReport, FaultsComeBeforeWarningsAndNotes) {
    CheckReport report("a");
    report.note("box", "", "");
    report.warning("box", "", "");
    report.note("classes", "", "");
    report.fault("box", "", "");
    EXPECT_THAT(kindsOf(report), ElementsAre("fault box", "warning box", "note box", "note classes"));
    EXPECT_EQ(report.number(CheckFinding::Severity::Note), 2U);
    EXPECT_TRUE(report.hasFaults());
}

TEST(CheckReport, WarningsAndNotesAreNoFaults) {
    CheckReport report("a");
    report.warning("box", "", "");
    report.note("box", "", "");
    EXPECT_FALSE(report.hasFaults());
}

TEST(CheckReport, AnErrorIsTakenApartIntoPlaceAndMessage) {
    CheckReport report("a.laz");
    report.faultOf("header", "a.laz: header: the x offset is nan: so");
    EXPECT_EQ(report.findings()[0].place, "header");
    EXPECT_EQ(report.findings()[0].message, "the x offset is nan: so");
    report.faultOf("file", "a.laz: vanished");
    EXPECT_EQ(findingOf(report, "file").place, "");
    EXPECT_EQ(findingOf(report, "file").message, "vanished");
}

TEST(CheckKinds, AreThoseOfTheDocumentation) {
    const std::string page = Support::readBytes(TIDEWATCH_DOCS_DIR "/check.md");
    std::set<std::string> documented;
    const std::regex row("\n\\| `([a-z-]+)` \\|");
    for (auto at = std::sregex_iterator(page.begin(), page.end(), row); at != std::sregex_iterator(); ++at)
        documented.insert((*at)[1]);
    const auto kinds = checkKinds();
    EXPECT_EQ(documented, (std::set<std::string>(kinds.begin(), kinds.end())));
}

TEST(CheckFile, AFileThatIsNotThereIsAFault) {
    const Support::TemporaryFolder folder;
    const CheckReport report = checkFile(folder / "missing.laz");
    EXPECT_THAT(kindsOf(report), ElementsAre("fault file"));
    EXPECT_THAT(report.findings()[0].place + report.findings()[0].message,
                HasSubstr(Support::systemReason(ENOENT)));
    EXPECT_THAT(kindsOf(checkFile(folder.path().string())), ElementsAre("fault file"));
}

TEST(CheckFile, BytesOfNoKnownFormatAreAFault) {
    EXPECT_THAT(kindsOf(checkBytes("something else\n")), ElementsAre("fault format"));
    EXPECT_THAT(kindsOf(checkBytes("")), ElementsAre("fault format"));
    EXPECT_THAT(kindsOf(checkBytes("", "Height.grd")), ElementsAre("note not-checked"));
}

TEST(CheckFile, TextOfNumbersIsSaidNotToBeChecked) {
    const CheckReport report = checkBytes(" 1.5 -2 3e5\n 4 nan inf\n");
    EXPECT_THAT(kindsOf(report), ElementsAre("note not-checked"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("XYZ text"));
}

TEST(CheckFile, WellKnownTextIsRead) {
    EXPECT_THAT(kindsOf(checkBytes("PROJCS[\"nothing of the kind\"")),
                ElementsAre("warning unreadable-system"));
    EXPECT_THAT(
        kindsOf(checkBytes("GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]],"
                           "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]]")),
        ElementsAre());
}

TEST(CheckFile, ProgressIsToldAndCanStop) {
    struct Stop {};
    class Stopping final : public Progress {
        void tick(const std::string&, double) override { throw Stop(); }
    };
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a", "NCOLS 1\n");
    EXPECT_THROW(static_cast<void>(checkFile(folder / "a", {}, Anchor::makeStrong<Stopping>())), Stop);
}

} // namespace
} // namespace Tidewatch
