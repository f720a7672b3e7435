// SPDX-License-Identifier: Apache-2.0
//
// Reference systems of grids, and what becomes of them in files: for each version of LAS and each kind of system, from
// well-known text and from GeoTIFF keys.
#include "library/crs/gridSystem.hpp"

#include "convlib/Reader.hpp"
#include "library/crs/GeoKeys.hpp"
#include "library/input/Inputs.hpp"
#include "library/las/exportLas.hpp"
#include "library/report/UsageError.hpp"
#include "readers/registerReaders.hpp"
#include "support/BundleBuilder.hpp"
#include "support/GeoKeyBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/WrittenLas.hpp"
#include "support/testName.hpp"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::WrittenLas;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const char* const localText = "LOCAL_CS[\"site\",UNIT[\"metre\",1],AXIS[\"x\",EAST],AXIS[\"y\",NORTH]]";

Sheaf::FileRecord recordOf(std::uint16_t id, const std::string& text) {
    return {"LASF_Projection", id, "as it was", {text.begin(), text.end()}};
}

class GridSystemTest : public ::testing::Test {
protected:
    Sheaf::Grid& makeGrid(const std::string& text, std::vector<Sheaf::FileRecord> records = {}) {
        Support::GridBuilder grid(*bundle_, 0, "g");
        grid.field("Positions", "", Support::Points{{1, 2, 3}});
        grid.grid().findChart(std::string(Sheaf::Grid::standardChart))->setReferenceSystem(text);
        Sheaf::FileStatement statement;
        statement.records = std::move(records);
        grid.grid().setStatement(std::move(statement));
        return grid.grid();
    }

    static std::string textOf(const std::string& code) { return *ReferenceSystem::fromCode(code).ogcText(); }
    static Sheaf::FileRecord keysOf(const std::string& code) {
        return *GeoKeys::write(ReferenceSystem::fromCode(code));
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(GridSystemTest, ChartWithoutATextGetsThatOfTheKeys) {
    Sheaf::Grid& grid = makeGrid("", {keysOf("EPSG:25832+5783")});
    EXPECT_EQ(GridSystem::of(grid).title(), "ETRS89 / UTM zone 32N + DHHN92 height (EPSG:25832+5783)");
    completeSystems(*bundle_);
    EXPECT_EQ(grid.findChart("")->referenceSystem(), textOf("EPSG:25832+5783"));
    Sheaf::Grid& own =
        (bundle_ = Anchor::makeStrong<Sheaf::Bundle>(), makeGrid(localText, {keysOf("EPSG:25832")}));
    completeSystems(*bundle_);
    EXPECT_EQ(own.findChart("")->referenceSystem(), localText) << "a text that is there stays";
}

TEST_F(GridSystemTest, WantedSystemReplacesAllAndIsSaidWhereItDiffers) {
    Sheaf::Grid& grid = makeGrid(textOf("EPSG:4326"), {recordOf(2112, "old"), {"Somebody", 1, "", {}}});
    EXPECT_THAT(setSystem(*bundle_, wantedSystem("EPSG:4326")), IsEmpty());
    EXPECT_THAT(grid.statement().records, SizeIs(2)) << "the same system changes nothing";
    EXPECT_THAT(setSystem(*bundle_, wantedSystem("EPSG:25832")),
                ElementsAre(HasSubstr("--crs replaces WGS 84 (EPSG:4326); coordinates stay as they are")));
    EXPECT_EQ(grid.findChart("")->referenceSystem(), textOf("EPSG:25832"));
    ASSERT_THAT(grid.statement().records, SizeIs(1));
    EXPECT_EQ(grid.statement().records[0].userId, "Somebody");
    EXPECT_THAT(setSystem(*bundle_, wantedSystem("none")), ElementsAre(HasSubstr("--crs removes ETRS89")));
    EXPECT_FALSE(GridSystem::of(grid).isThere());
    EXPECT_THAT(setSystem(*bundle_, wantedSystem("EPSG:25832")), IsEmpty()) << "nothing was replaced";
}

TEST_F(GridSystemTest, WantedSystemIsACodeAFileOrNone) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "site.wkt", std::string(localText) + "\n");
    Support::writeBytes(folder / "bad.wkt", "PROJCS[");
    EXPECT_EQ(wantedSystem(folder / "site.wkt").text, localText);
    EXPECT_EQ(wantedSystem("EPSG:4326").text, textOf("EPSG:4326"));
    EXPECT_EQ(wantedSystem("none").text, "");
    for (const std::string& text : {folder / "bad.wkt", folder / "missing.wkt", std::string("EPSG:1"),
                                    std::string("+proj=longlat"), std::string()})
        EXPECT_THROW(static_cast<void>(wantedSystem(text)), UsageError) << text;
}

TEST_F(GridSystemTest, RecordsThatWereReadGoAlongByteForByte) {
    const std::string odd = "  " + textOf("EPSG:25832") + "\n" + std::string(3, '\0');
    const WrittenSystem text =
        systemForLas(makeGrid(textOf("EPSG:25832"), {recordOf(2111, "transform"), recordOf(2112, odd)}), 4);
    EXPECT_THAT(text.additions.records, ElementsAre(recordOf(2111, "transform"), recordOf(2112, odd)));
    EXPECT_EQ(text.additions.headerBits, 16);

    bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    Sheaf::FileRecord keys = keysOf("EPSG:25832");
    keys.description = "from a scanner";
    const Sheaf::FileRecord texts = recordOf(34737, "UTM|");
    const Sheaf::Grid& grid = makeGrid("", {keys, recordOf(34736, "12345678"), texts});
    completeSystems(*bundle_);
    for (const int version : {2, 3}) {
        const WrittenSystem old = systemForLas(grid, version);
        EXPECT_THAT(old.additions.records, ElementsAre(keys, recordOf(34736, "12345678"), texts));
        EXPECT_EQ(old.additions.headerBits, 0);
        EXPECT_THAT(old.loss, IsEmpty());
    }
}

TEST_F(GridSystemTest, RecordsOfAnotherSystemDoNotGoAlong) {
    const Sheaf::Grid& grid =
        makeGrid(textOf("EPSG:25833"), {keysOf("EPSG:25832"), recordOf(2112, textOf("EPSG:25832"))});
    const WrittenSystem old = systemForLas(grid, 2);
    EXPECT_THAT(old.additions.records, ElementsAre(keysOf("EPSG:25833")));
    const WrittenSystem text = systemForLas(grid, 4);
    ASSERT_THAT(text.additions.records, SizeIs(1));
    EXPECT_THAT(std::string(text.additions.records[0].bytes.begin(), text.additions.records[0].bytes.end()),
                HasSubstr("25833"));
}

TEST_F(GridSystemTest, KeysThatNobodyReadsGoAlongInOlderVersionsAndAreLostInLas14) {
    const Sheaf::FileRecord keys = recordOf(34735, std::string("\1\0\1\0\0\0\1\0\0\4\0\0\1\0\1\0", 16));
    const Sheaf::Grid& grid = makeGrid("", {keys});
    EXPECT_THAT(systemForLas(grid, 2).additions.records, ElementsAre(keys));
    EXPECT_THAT(systemForLas(grid, 2).loss, IsEmpty());
    EXPECT_TRUE(systemForLas(grid, 4).additions.empty());
    EXPECT_THAT(systemForLas(grid, 4).loss, HasSubstr("a user-defined projection"));
}

#ifdef TIDEWATCH_GDAL

TEST_F(GridSystemTest, UserDefinedKeysGoAlongInOlderVersionsAndAreTextInLas14) {
    const auto records = Support::GeoKeyBuilder::ownProjection().records();
    const auto own = ReferenceSystem::fromText(Support::GeoKeyBuilder::ownProjectionText());
    Sheaf::Grid& grid = makeGrid("", records);
    completeSystems(*bundle_);
    EXPECT_TRUE(ReferenceSystem::fromText(grid.findChart("")->referenceSystem()).isEquivalentTo(own));
    EXPECT_THAT(GridSystem::of(grid).unreadable, IsEmpty());
    for (const int version : {2, 3}) {
        const WrittenSystem old = systemForLas(grid, version);
        EXPECT_EQ(old.additions.records, records);
        EXPECT_THAT(old.loss, IsEmpty());
    }
    const WrittenSystem text = systemForLas(grid, 4);
    EXPECT_THAT(text.loss, IsEmpty());
    EXPECT_EQ(text.additions.headerBits, 16);
    ASSERT_THAT(text.additions.records, SizeIs(1));
    EXPECT_EQ(text.additions.records[0].recordId, 2112);
    EXPECT_THAT(systemForPrj(grid).additions.prj, ::testing::StartsWith("PROJCS[\"site_grid\""));
}

TEST_F(GridSystemTest, KeysThatDifferInTheirDoublesAloneAreSystemsOfTheirOwn) {
    auto records = Support::GeoKeyBuilder::ownProjection().records();
    makeGrid("", records);
    // The third double is the false easting.
    std::string doubles(records[1].bytes.begin(), records[1].bytes.end());
    ASSERT_EQ(Support::number<double>(doubles, 16), 1000);
    Support::patch(doubles, 16, 5000.0);
    records[1].bytes.assign(doubles.begin(), doubles.end());
    Support::GridBuilder other(*bundle_, 0, "other");
    other.field("Positions", "", Support::Points{{1, 2, 3}});
    Sheaf::FileStatement statement;
    statement.records = records;
    other.grid().setStatement(statement);
    completeSystems(*bundle_);
    const auto slice = bundle_->slices().begin()->second.lock();
    const auto textOfGrid = [&](const std::string& name) {
        return slice->grids().at(name).lock()->findChart("")->referenceSystem();
    };
    EXPECT_THAT(textOfGrid("g"), HasSubstr("\"false_easting\",1000"));
    EXPECT_THAT(textOfGrid("other"), HasSubstr("\"false_easting\",5000"));
}

#endif

TEST_F(GridSystemTest, SystemThatOlderTextCannotSayIsStatedInTheNewerWithANote) {
    const WrittenSystem written =
        systemForLas(makeGrid(*ReferenceSystem::fromCode("EPSG:4979").isoText()), 4);
    ASSERT_THAT(written.additions.records, SizeIs(1));
    EXPECT_EQ(written.additions.records[0].bytes.back(), 0);
    EXPECT_THAT(written.note, HasSubstr("ISO 19162"));
    EXPECT_THAT(written.loss, IsEmpty());
}

TEST_F(GridSystemTest, TextThatPROJCannotReadIsPassedOn) {
    const WrittenSystem written = systemForLas(makeGrid("SOMETHING[]"), 4);
    ASSERT_THAT(written.additions.records, SizeIs(1));
    EXPECT_EQ(written.additions.records[0].bytes.size(), 12U);
    EXPECT_THAT(written.note, HasSubstr("copied unchanged"));
    EXPECT_THAT(
        systemForLas(*bundle_->slices().begin()->second.lock()->grids().begin()->second.lock(), 2).loss,
        HasSubstr("--las-version 1.4"));
}

TEST_F(GridSystemTest, PrjHasTheTextOfEsri) {
    EXPECT_THAT(systemForPrj(makeGrid(textOf("EPSG:25832"))).additions.prj,
                ::testing::StartsWith("PROJCS[\"ETRS_1989_UTM_Zone_32N\""));
    bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    const WrittenSystem geocentric = systemForPrj(makeGrid(textOf("EPSG:4978")));
    EXPECT_THAT(geocentric.additions.prj, IsEmpty());
    EXPECT_THAT(geocentric.loss, HasSubstr("EPSG:4978"));
    bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    EXPECT_TRUE(systemForPrj(makeGrid("")).additions.empty());
}

// The matrix.

struct System {
    const char* name;
    const char* code; ///< empty for none, "local" for one without a code
};

struct Case {
    int version;
    System system;
    bool fromKeys;

    // Else names of tests would show addresses.
    friend void PrintTo(const Case& one, std::ostream* out) {
        *out << "LAS 1." << one.version << ", " << one.system.name
             << (one.fromKeys ? " from keys" : " from text");
    }
};

Inputs inputsOf(const std::string& file) {
    InputOptions options;
    options.files = {file};
    return Inputs(options);
}

class ReferenceSystemInLas : public ::testing::TestWithParam<Case> {};

TEST_P(ReferenceSystemInLas, IsStatedAsTheVersionHasItAndReadBack) {
    const auto& [version, kind, fromKeys] = GetParam();
    const std::string code = kind.code;
    const bool isLocal = code == "local";
    const auto system = code.empty() ? std::nullopt
                        : isLocal    ? std::optional(ReferenceSystem::fromText(localText))
                                     : std::optional(ReferenceSystem::fromCode(code));

    // A file that states the system goes in.
    const Support::TemporaryFolder folder;
    registerReaders();
    Support::LasFileBuilder in;
    in.minor = fromKeys ? 2 : 4;
    in.format = fromKeys ? 1 : 6;
    in.globalEncoding = fromKeys ? 0 : 16;
    in.addVariedPoints(3);
    if (system && fromKeys) {
        const auto bytes = GeoKeys::write(*system)->bytes;
        in.vlrs.push_back({"LASF_Projection", 34735, {bytes.begin(), bytes.end()}});
    } else if (system) {
        in.vlrs.push_back({"LASF_Projection", 2112, *system->ogcText() + '\0'});
    }
    Support::writeBytes(folder / "in.las", in.build());

    const Inputs inputs = inputsOf(folder / "in.las");
    LasOptions options;
    options.output = OutputPattern(folder / "out.las");
    options.version = version;
    options.verify = true;
    const ExportReport report = exportLas(inputs, options);
    ASSERT_TRUE(report.placed);

    const WrittenLas out = WrittenLas::read(folder / "out.las");
    const auto vlrs = out.vlrs();
    const auto has = [&](std::uint16_t id) {
        return std::count_if(vlrs.begin(), vlrs.end(), [&](const auto& vlr) {
            return vlr.userId == "LASF_Projection" && vlr.recordId == id;
        });
    };
    const bool isStated = system && (version == 4 || !isLocal);
    EXPECT_EQ((out.at<std::uint16_t>(6) & 16U) != 0, isStated && version == 4);
    EXPECT_EQ(has(2112), isStated && version == 4 ? 1 : 0);
    EXPECT_EQ(has(34735), isStated && version != 4 ? 1 : 0);
    const bool isLost = std::any_of(report.losses.begin(), report.losses.end(), [](const Loss& loss) {
        return loss.message.find("coordinate reference system") != std::string::npos;
    });
    EXPECT_EQ(isLost, system && !isStated);

    const Inputs back = inputsOf(folder / "out.las");
    const auto grid = back.bundle()->slices().begin()->second.lock()->grids().begin()->second.lock();
    const GridSystem found = GridSystem::of(*grid);
    EXPECT_THAT(found.unreadable, IsEmpty());
    ASSERT_EQ(found.system.has_value(), isStated);
    if (isStated) {
        EXPECT_TRUE(found.system->isEquivalentTo(*system)) << found.text;
    }

    if (has(2112) == 0)
        return;
    // Another program reads the text.
    Support::writeBytes(folder / "text.wkt", found.text);
    if (std::system("gdalsrsinfo --version > /dev/null 2>&1; test $? -ne 127") != 0)
        GTEST_SKIP() << "no gdalsrsinfo: scripts/setup.sh installs it";
    const std::string command =
        "gdalsrsinfo -o wkt2 '" + (folder / "text.wkt") + "' > '" + (folder / "said") + "' 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << Support::readBytes(folder / "said");
    EXPECT_THAT(Support::readBytes(folder / "said"), HasSubstr(system->name()));
}

#ifdef TIDEWATCH_GDAL

TEST(UserDefinedKeysInLas, AreTheSameInOlderVersionsAndTextInLas14) {
    const Support::TemporaryFolder folder;
    registerReaders();
    Support::LasFileBuilder in;
    in.format = 1;
    in.addVariedPoints(3);
    const auto records = Support::GeoKeyBuilder::ownProjection().number(4096, 5783).records();
    for (const Sheaf::FileRecord& record : records)
        in.vlrs.push_back({record.userId, record.recordId, {record.bytes.begin(), record.bytes.end()}});
    Support::writeBytes(folder / "in.las", in.build());
    for (const int version : {2, 3, 4}) {
        const Inputs inputs = inputsOf(folder / "in.las");
        LasOptions options;
        options.output = OutputPattern(folder / "out.las");
        options.version = version;
        options.overwrite = true;
        const ExportReport report = exportLas(inputs, options);
        for (const Loss& loss : report.losses)
            EXPECT_THAT(loss.message, ::testing::Not(HasSubstr("system")));
        const auto vlrs = WrittenLas::read(folder / "out.las").vlrs();
        if (version == 4) {
            ASSERT_THAT(vlrs, SizeIs(1));
            EXPECT_EQ(vlrs[0].recordId, 2112);
            EXPECT_THAT(vlrs[0].payload, ::testing::StartsWith("COMPD_CS[\"site grid + DHHN92 height\""));
        } else {
            ASSERT_THAT(vlrs, SizeIs(records.size()));
            for (std::size_t i = 0; i < vlrs.size(); ++i) {
                EXPECT_EQ(vlrs[i].recordId, records[i].recordId);
                EXPECT_EQ(vlrs[i].payload, std::string(records[i].bytes.begin(), records[i].bytes.end()));
            }
        }
        const Inputs back = inputsOf(folder / "out.las");
        const auto grid = back.bundle()->slices().begin()->second.lock()->grids().begin()->second.lock();
        const GridSystem found = GridSystem::of(*grid);
        EXPECT_THAT(found.unreadable, IsEmpty());
        EXPECT_EQ(found.title(), "site grid + DHHN92 height");
        EXPECT_TRUE(found.system->hasVertical());
    }
}

#endif

std::vector<Case> cases() {
    std::vector<Case> list;
    for (const int version : {2, 3, 4}) {
        for (const System system :
             {System{"none", ""}, System{"geographic", "EPSG:4326"}, System{"projected", "EPSG:25832"},
              System{"projected and vertical", "EPSG:25832+5783"}, System{"local", "local"},
              System{"geocentric", "EPSG:4978"}}) {
            for (const bool fromKeys : {false, true}) {
                // Keys have no local systems with a code.
                if (!fromKeys || std::string(system.code) != "local")
                    list.push_back({version, system, fromKeys});
            }
        }
    }
    return list;
}

INSTANTIATE_TEST_SUITE_P(, ReferenceSystemInLas, ::testing::ValuesIn(cases()), [](const auto& one) {
    return Support::testName(one.param.system.name) + (one.param.fromKeys ? "FromKeys" : "FromText") +
           "InVersion" + std::to_string(one.param.version);
});

} // namespace
} // namespace Tidewatch
