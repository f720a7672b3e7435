// SPDX-License-Identifier: Apache-2.0
#include "ascii/writeEsriGrid.hpp"

#include "ascii/AsciiBundle.hpp"
#include "ascii/CheckType.hpp"
#include "support/ConsoleCapture.hpp"

#include <iomanip>
#include <limits>
#include <locale>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ExportLib::CheckType;
using Geom::PhysicalSpace;
using Sheaf::MultiIndex;
using Support::heldArray;
using Support::heldLattice;
using Support::namesIn;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Creator = Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>;
using Bytes = std::vector<unsigned char>;

/// A fragment of a uniform grid, 4 by 3 cells unless a test says otherwise, all of cell type 1.
struct EsriGrid : ::testing::Test {
    EsriGrid() {
        fragment->overlapLow = MultiIndex<3>{};
        fragment->overlapHigh = MultiIndex<3>{};
        accepted.add(1, 1);
    }

    void setLattice(const PhysicalSpace::point& corner, double spacing, const MultiIndex<3>& size) {
        setLattice(corner, {spacing, spacing, 1}, size);
    }
    void setLattice(const PhysicalSpace::point& corner, const PhysicalSpace::vector& spacing,
                    const MultiIndex<3>& size) {
        lattice = heldLattice(corner, spacing, size);
        extents = Sheaf::Extents(size);
        types = heldArray<unsigned char>(extents, Bytes(*extents.elementCount(), 1));
    }

    template <class T>
    CheckType check(std::vector<T> values) {
        return checkOf<T>(heldArray<T>(extents, std::move(values)));
    }

    template <class T>
    CheckType checkOf(Creator values) {
        representation = Anchor::makeStrong<Sheaf::Representation>();
        representation->makeField("Positions", typeid(PhysicalSpace::point))->addFragment(fragment, lattice);
        if (types)
            representation->makeField("CellType", typeid(unsigned char))->addFragment(fragment, types);
        data = std::move(values);
        field = representation->makeField("Height", typeid(T));
        field->addFragment(fragment, data);
        return {data,
                *field,
                *representation,
                folder.path() / "tile.1",
                fragment,
                accepted,
                filterName,
                precision,
                append,
                tileSuffix,
                true,
                {}};
    }

    /// Writes the grid and gives the file's content.
    template <class T>
    std::string written(std::vector<T> values) {
        return written<T>(heldArray<T>(extents, std::move(values)));
    }
    template <class T>
    std::string written(Creator values) {
        CheckType c = checkOf<T>(std::move(values));
        EXPECT_TRUE(CheckType::exec<T>::Break(c));
        record = c.written;
        return record ? Support::readBytes(record->path) : "no file";
    }

    /// The lines behind the header.
    template <class T>
    std::string body(std::vector<T> values) {
        std::string text = written<T>(std::move(values));
        for (int line = 0; line < 6; ++line)
            text.erase(0, text.find('\n') + 1);
        return text;
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::FragmentID> fragment = Anchor::makeStrong<Sheaf::FragmentID>("f");
    Sheaf::Extents extents{4, 3, 1};
    Creator lattice = heldLattice({10, 20, 0}, {0.5, 0.5, 1}, {4, 3, 1});
    Creator types = heldArray<unsigned char>(extents, Bytes(12, 1));
    Geom::MultiRange<double> accepted;
    std::string filterName = "CellType";
    unsigned int precision = 0;
    bool append = false;
    bool tileSuffix = false;
    std::optional<ConvLib::WrittenFile> record;

private:
    Creator data;
    Anchor::StrongPtr<Sheaf::Field> field;
    Anchor::StrongPtr<Sheaf::Representation> representation;
};

const std::vector<int> twelve{0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 23};

TEST_F(EsriGrid, FourByThreeCellsAreSixHeaderLinesAndThreeRowsNorthFirst) {
    EXPECT_EQ(written(twelve), "NCOLS 4\n"
                               "NROWS 3\n"
                               "XLLCENTER 10.000\n"
                               "YLLCENTER 20.000\n"
                               "CELLSIZE 0.500\n"
                               "NODATA_VALUE -9999.\n"
                               " 20  21  22  23 \n"
                               " 10  11  12  13 \n"
                               " 0  1  2  3 \n");
    EXPECT_THAT(console.messages, IsEmpty());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, folder / "tile.1.grd");
    EXPECT_EQ(record->items, 12U);
    EXPECT_EQ(record->bytes, std::filesystem::file_size(record->path));
    EXPECT_FALSE(record->failed);
}

TEST_F(EsriGrid, EveryScalarTypeIsWrittenByteForByte) {
    setLattice({0, 0, 0}, 1, {2, 1, 1});
    EXPECT_EQ(body<float>({0.1F, 2}), " 0.100000  2.000000 \n");
    EXPECT_EQ(body<double>({0.1, 2}), " 0.100000  2.000000 \n");
    EXPECT_EQ(body<long double>({0.1L, 2}), " 0.100000  2.000000 \n");
    EXPECT_EQ(body<unsigned char>({65, 255}), " 65  255 \n");
    EXPECT_EQ(body<unsigned short>({0, 65535}), " 0  65535 \n");
    EXPECT_EQ(body<unsigned int>({0, 4294967295U}), " 0  4294967295 \n");
    EXPECT_EQ(body<unsigned long long>({0, 18446744073709551615ULL}), " 0  18446744073709551615 \n");
    EXPECT_EQ(body<int>({-1, 7}), " -1  7 \n");
    precision = 1;
    EXPECT_EQ(body<float>({0.1F, 2}), " 0.1  2.0 \n");
    EXPECT_EQ(body<double>({0.1, 2}), " 0.1  2.0 \n");
    EXPECT_EQ(body<long double>({0.1L, 2}), " 0.1  2.0 \n");
    EXPECT_EQ(body<unsigned char>({65, 10}), " A  \n \n");
    EXPECT_EQ(body<unsigned short>({0, 65535}), " 0  65535 \n");
    EXPECT_EQ(body<unsigned int>({0, 4294967295U}), " 0  4294967295 \n");
    EXPECT_EQ(body<unsigned long long>({0, 18446744073709551615ULL}), " 0  18446744073709551615 \n");
    EXPECT_EQ(body<int>({-1, 7}), " -1  7 \n");
}

TEST_F(EsriGrid, PrecisionIsTheNumberOfDecimalsInTheBodyOnly) {
    setLattice({0, 0, 0}, 1, {1, 1, 1});
    EXPECT_EQ(body<double>({1.25}), " 1.250000 \n");
    precision = 2;
    EXPECT_EQ(written<double>({1.25}), "NCOLS 1\n"
                                       "NROWS 1\n"
                                       "XLLCENTER 0.000\n"
                                       "YLLCENTER 0.000\n"
                                       "CELLSIZE 1.000\n"
                                       "NODATA_VALUE -9999.\n"
                                       " 1.25 \n");
}

TEST_F(EsriGrid, RejectedCellHasNoBlankBeforeIt) {
    setLattice({0, 0, 0}, 1, {3, 1, 1});
    types = heldArray<unsigned char>({3, 1, 1}, {1, 0, 1});
    precision = 2;
    EXPECT_EQ(body<double>({1.25, 7, 2.5}), " 1.25 -9999.  2.50 \n");
}

TEST_F(EsriGrid, EmptyFilterRejectsEveryCell) {
    accepted = {};
    setLattice({0, 0, 0}, 1, {2, 2, 1});
    EXPECT_EQ(body<double>({1, 2, 3, 4}), "-9999. -9999. \n-9999. -9999. \n");
    EXPECT_EQ(record->items, 4U);
}

TEST_F(EsriGrid, CellTypesMeetTheFilterWithinItsTolerance) {
    setLattice({0, 0, 0}, 1, {1, 1, 1});
    types = heldArray<unsigned char>({1, 1, 1}, {3});
    const auto bodyWith = [&](double low, double high) {
        accepted = {};
        accepted.add(low, high);
        return body<int>({5});
    };
    EXPECT_EQ(bodyWith(3, 3), " 5 \n");
    EXPECT_EQ(bodyWith(2.9999999995, 2.9999999995), " 5 \n");
    EXPECT_EQ(bodyWith(2.999999998, 2.999999998), "-9999. \n");
    EXPECT_EQ(bodyWith(4, 255), "-9999. \n");
    EXPECT_EQ(bodyWith(3, 2), "-9999. \n");
}

TEST_F(EsriGrid, EveryCellTypeIsAskedForByItsNumber) {
    setLattice({0, 0, 0}, 1, {256, 1, 1});
    Bytes all(256);
    for (std::size_t type = 0; type < all.size(); ++type)
        all[type] = static_cast<unsigned char>(type);
    types = heldArray<unsigned char>({256, 1, 1}, all);
    accepted = {};
    accepted.add(2, 4);
    accepted.add(200, 255);
    std::string expected;
    for (int type = 0; type < 256; ++type)
        expected += (type >= 2 && type <= 4) || type >= 200 ? " 7 " : "-9999. ";
    EXPECT_EQ(body<int>(std::vector<int>(256, 7)), expected + "\n");
}

TEST_F(EsriGrid, LowOverlapShiftsTheColumnsButOnlyShortensTheRows) {
    fragment->overlapLow = MultiIndex<3>{1, 1, 0};
    EXPECT_EQ(written(twelve), "NCOLS 3\n"
                               "NROWS 2\n"
                               "XLLCENTER 10.500\n"
                               "YLLCENTER 20.500\n"
                               "CELLSIZE 0.500\n"
                               "NODATA_VALUE -9999.\n"
                               " 11  12  13 \n"
                               " 1  2  3 \n");
    EXPECT_EQ(record->items, 6U);
}

TEST_F(EsriGrid, HighOverlapCutsColumnsAndRowsOff) {
    fragment->overlapHigh = MultiIndex<3>{1, 2, 0};
    EXPECT_EQ(written(twelve), "NCOLS 3\n"
                               "NROWS 1\n"
                               "XLLCENTER 10.000\n"
                               "YLLCENTER 20.000\n"
                               "CELLSIZE 0.500\n"
                               "NODATA_VALUE -9999.\n"
                               " 0  1  2 \n");
}

TEST_F(EsriGrid, BothOverlapsTogether) {
    fragment->overlapLow = MultiIndex<3>{1, 1, 0};
    fragment->overlapHigh = MultiIndex<3>{2, 1, 5};
    EXPECT_EQ(body(twelve), " 1 \n");
}

TEST_F(EsriGrid, OverlapsThatTakeEverythingLeaveEmptyRowsOrNone) {
    fragment->overlapLow = MultiIndex<3>{2, 0, 0};
    fragment->overlapHigh = MultiIndex<3>{2, 0, 0};
    EXPECT_EQ(body(twelve), "\n\n\n");
    EXPECT_EQ(record->items, 0U);
    fragment->overlapLow = MultiIndex<3>{0, 3, 0};
    fragment->overlapHigh = MultiIndex<3>{0, 0, 0};
    EXPECT_EQ(body(twelve), "");
    EXPECT_THAT(written(twelve), HasSubstr("NROWS 0\n"));
}

TEST_F(EsriGrid, OverlapsLargerThanTheGridLeaveTheFileEmpty) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    const std::pair<MultiIndex<3>, MultiIndex<3>> cases[]{{{3, 0, 0}, {2, 0, 0}},
                                                          {{0, 0, 0}, {5, 0, 0}},
                                                          {{5, 0, 0}, {0, 0, 0}},
                                                          {{0, 2, 0}, {0, 2, 0}},
                                                          {{0, 0, 0}, {0, 4, 0}},
                                                          {{most, 0, 0}, {1, 0, 0}},
                                                          {{0, 1, 0}, {0, most, 0}},
                                                          {{most, most, 0}, {most, most, 0}},
                                                          {{0, 0, 0}, {0, std::uint64_t{1} << 32, 0}}};
    for (const auto& [low, high] : cases) {
        console.messages.clear();
        fragment->overlapLow = low;
        fragment->overlapHigh = high;
        EXPECT_EQ(written(twelve), "");
        EXPECT_THAT(console.messages, ElementsAre("Overlap is larger than the grid"));
    }
}

TEST_F(EsriGrid, MissingOverlapsAreReportedEachAndTakenForNone) {
    fragment->overlapLow.reset();
    EXPECT_THAT(body(twelve), HasSubstr(" 20  21  22  23 \n"));
    EXPECT_THAT(console.messages, ElementsAre("No Overlap"));
    fragment->overlapHigh.reset();
    EXPECT_THAT(body(twelve), HasSubstr(" 20  21  22  23 \n"));
    EXPECT_THAT(console.messages, ElementsAre("No Overlap", "No Overlap", "No Overlap"));
}

TEST_F(EsriGrid, DataWithoutAFragmentHasNoOverlapEither) {
    fragment.reset();
    EXPECT_THAT(body(twelve), HasSubstr(" 20  21  22  23 \n"));
    EXPECT_THAT(console.messages, ElementsAre("No Overlap", "No Overlap"));
}

TEST_F(EsriGrid, GridOfTwoLayersYieldsOnlyTheConsoleMessage) {
    setLattice({0, 0, 0}, 1, {2, 1, 2});
    fragment->overlapLow.reset();
    EXPECT_EQ(written<int>({1, 2, 3, 4}), "no file");
    EXPECT_THAT(console.messages, ElementsAre("Export as esri can only have dim: 1"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(EsriGrid, GridWithoutLayersYieldsOnlyTheConsoleMessage) {
    setLattice({0, 0, 0}, 1, {2, 1, 0});
    EXPECT_EQ(written(std::vector<int>()), "no file");
    EXPECT_THAT(console.messages, ElementsAre("Export as esri can only have dim: 1"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(EsriGrid, SpacingAlongYIsNotWritten) {
    setLattice({0, 0, 0}, PhysicalSpace::vector{2, 5, 1}, {1, 2, 1});
    fragment->overlapLow = MultiIndex<3>{0, 1, 0};
    const std::string text = written<int>({1, 2});
    EXPECT_THAT(text, HasSubstr("CELLSIZE 2.000\n"));
    EXPECT_THAT(text, HasSubstr("YLLCENTER 5.000\n"));
}

TEST_F(EsriGrid, CornerIsThatOfTheBoxWhereSpacingIsNegative) {
    setLattice({10, 20, 0}, PhysicalSpace::vector{-1, -2, 1}, {4, 3, 1});
    const std::string text = written(twelve);
    EXPECT_THAT(text, HasSubstr("XLLCENTER 7.000\n"));
    EXPECT_THAT(text, HasSubstr("YLLCENTER 16.000\n"));
}

TEST_F(EsriGrid, TileSuffixNamesTheLowerLeftCorner) {
    tileSuffix = true;
    setLattice({1000.7, -20.2, 0}, 1, {1, 1, 1});
    EXPECT_THAT(written<int>({1}), HasSubstr("XLLCENTER 1000.700\n"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("tile.1_1000_-20.grd"));
}

TEST_F(EsriGrid, TileSuffixCountsTheLowOverlapAndCutsTowardsZero) {
    tileSuffix = true;
    setLattice({-1.9, -1.9, 0}, PhysicalSpace::vector{1, 0.5, 1}, {4, 3, 1});
    fragment->overlapLow = MultiIndex<3>{1, 2, 0};
    EXPECT_THAT(written(twelve), HasSubstr("XLLCENTER -0.900\nYLLCENTER -0.900\n"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("tile.1_0_0.grd"));
}

TEST_F(EsriGrid, TileSuffixOfCoordinatesBeyondThirtyTwoBitsIsTheirLimit) {
    tileSuffix = true;
    setLattice({3e9, -1e300, 0}, 1, {1, 1, 1});
    written<int>({1});
    setLattice({2147483647.5, -2147483648.5, 0}, 1, {1, 1, 1});
    written<int>({1});
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("tile.1_2147483647_-2147483648.grd"));
}

TEST_F(EsriGrid, TileSuffixOfCoordinatesThatAreNoNumbersIsZeroOrALimit) {
    tileSuffix = true;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    setLattice({infinity, 5, 0}, PhysicalSpace::vector{0, 1, 1}, {1, 1, 1});
    written<int>({1});
    fragment->overlapLow = MultiIndex<3>{0, 0, 0};
    setLattice({0, 0, 0}, PhysicalSpace::vector{infinity, 1, 1}, {1, 1, 1});
    written<int>({1});
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("tile.1_0_0.grd", "tile.1_2147483647_5.grd"));
}

TEST_F(EsriGrid, StemPositionsIsNotReplaced) {
    CheckType c = check(twelve);
    c.outputPath = folder.path() / "Positions";
    EXPECT_TRUE(CheckType::exec<int>::Break(c));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("Positions.grd"));
}

TEST_F(EsriGrid, AppendAddsASecondHeaderAndBody) {
    append = true;
    const std::string once = written(twelve);
    EXPECT_EQ(written(twelve), once + once);
    EXPECT_EQ(record->bytes, once.size());
    append = false;
    EXPECT_EQ(written(twelve), once);
}

TEST_F(EsriGrid, MissingCellTypeFieldLeavesTheFileEmpty) {
    filterName = "Other";
    EXPECT_EQ(written(twelve), "");
    EXPECT_THAT(console.messages, ElementsAre("Have no cell type field"));
    EXPECT_EQ(record->items, 0U);
    EXPECT_EQ(record->bytes, 0U);
}

TEST_F(EsriGrid, MissingCellTypeFieldTruncatesOrLeavesWhatStoodThere) {
    filterName = "Other";
    Support::writeBytes(folder / "tile.1.grd", "before");
    append = true;
    EXPECT_EQ(written(twelve), "before");
    append = false;
    EXPECT_EQ(written(twelve), "");
}

TEST_F(EsriGrid, CellTypeFieldWithoutThisFragmentLeavesTheFileEmpty) {
    types.reset();
    CheckType c = check(twelve);
    Sheaf::Representation other;
    other.makeField("Positions", typeid(PhysicalSpace::point))->addFragment(fragment, lattice);
    other.makeField("CellType", typeid(unsigned char))
        ->addFragment(Anchor::makeStrong<Sheaf::FragmentID>("other"),
                      heldArray<unsigned char>(extents, Bytes(12)));
    CheckType withOther{
        c.data,      c.field, other, c.outputPath, c.fragment, c.cellTypeFilter, c.cellTypeFieldName,
        c.precision, false,   false};
    EXPECT_TRUE(CheckType::exec<int>::Break(withOther));
    EXPECT_THAT(console.messages, ElementsAre("Have no cell type CAB"));
    EXPECT_EQ(Support::readBytes(folder / "tile.1.grd"), "");
}

TEST_F(EsriGrid, CellTypesThatAreNoBytesOfThreeAxesLeaveTheFileEmpty) {
    for (const Creator& unusable :
         {Creator(heldArray<unsigned char>({4, 3}, Bytes(12, 1))),
          Creator(heldArray<unsigned char>({4, 3, 1, 1}, Bytes(12, 1))),
          Creator(heldArray<unsigned short>({4, 3, 1}, std::vector<unsigned short>(12, 1)))}) {
        console.messages.clear();
        types = unusable;
        EXPECT_EQ(written(twelve), "");
        EXPECT_THAT(console.messages, ElementsAre("Have no cell type mem"));
    }
}

TEST_F(EsriGrid, CellTypesSmallerThanTheGridLeaveTheFileEmpty) {
    for (const Sheaf::Extents& size :
         {Sheaf::Extents{3, 3, 1}, Sheaf::Extents{4, 2, 1}, Sheaf::Extents{4, 3, 0}}) {
        console.messages.clear();
        types = heldArray<unsigned char>(size, Bytes(*size.elementCount(), 1));
        EXPECT_EQ(written(twelve), "");
        EXPECT_THAT(console.messages, ElementsAre("Have no cell type mem"));
    }
}

TEST_F(EsriGrid, CellTypesLargerThanTheGridAreReadAtTheirOwnPlaces) {
    types = heldArray<unsigned char>({5, 4, 2}, Bytes(40, 1));
    Bytes larger(40, 1);
    larger[5 * 2 + 1] = 0; // column 1 of row 2
    types = heldArray<unsigned char>({5, 4, 2}, larger);
    EXPECT_EQ(body(twelve), " 20 -9999.  22  23 \n 10  11  12  13 \n 0  1  2  3 \n");
}

TEST_F(EsriGrid, ValuesThatAreNotOfTheGridsShapeLeaveTheFileEmpty) {
    const auto ints = [](const Sheaf::Extents& size) {
        return heldArray<int>(size, std::vector<int>(*size.elementCount(), 5));
    };
    for (const Creator& unusable :
         {ints({12}), ints({4, 3}), ints({3, 3, 1}), ints({4, 2, 1}), ints({4, 3, 0}),
          Creator(heldArray<float>({4, 3, 1}, std::vector<float>(12)))}) {
        console.messages.clear();
        EXPECT_EQ(written<int>(unusable), "");
        EXPECT_THAT(console.messages, ElementsAre("Have no cell type mem"));
    }
}

TEST_F(EsriGrid, ValuesWhoseMemoryHasShrunkAreNotReadBeyondTheirEnd) {
    const auto values = Sheaf::makeArray({4, 3, 1}, std::vector<int>(12));
    values->base_vector().resize(2);
    EXPECT_EQ(written<int>(Anchor::makeStrong<Sheaf::HeldCreator>(values)), "");
    const auto shrunk = Sheaf::makeArray({4, 3, 1}, Bytes(12));
    shrunk->base_vector().resize(2);
    types = Anchor::makeStrong<Sheaf::HeldCreator>(shrunk);
    EXPECT_EQ(written(twelve), "");
}

TEST_F(EsriGrid, GridWithoutColumnsIsAHeaderAndEmptyRowsAtTheLatticesOrigin) {
    setLattice({10, 20, 0}, 0.5, {0, 3, 1});
    EXPECT_EQ(written(std::vector<int>()), "NCOLS 0\n"
                                           "NROWS 3\n"
                                           "XLLCENTER 10.000\n"
                                           "YLLCENTER 20.000\n"
                                           "CELLSIZE 0.500\n"
                                           "NODATA_VALUE -9999.\n"
                                           "\n\n\n");
    EXPECT_EQ(record->items, 0U);
    fragment->overlapLow = MultiIndex<3>{0, 1, 0};
    EXPECT_THAT(written(std::vector<int>()),
                AllOf(HasSubstr("NROWS 2\nXLLCENTER 10.000\nYLLCENTER 20.500\n"), EndsWith("-9999.\n\n\n")));
}

TEST_F(EsriGrid, GridWithoutRowsIsAHeaderAtTheLatticesOrigin) {
    tileSuffix = true;
    setLattice({10, 20, 0}, 0.5, {4, 0, 1});
    EXPECT_EQ(written(std::vector<int>()), "NCOLS 4\n"
                                           "NROWS 0\n"
                                           "XLLCENTER 10.000\n"
                                           "YLLCENTER 20.000\n"
                                           "CELLSIZE 0.500\n"
                                           "NODATA_VALUE -9999.\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("tile.1_10_20.grd"));
}

TEST_F(EsriGrid, CellTypesMayBeExportedThemselves) {
    types = heldArray<unsigned char>(extents, {1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    CheckType c = checkOf<unsigned char>(types);
    EXPECT_TRUE(CheckType::exec<unsigned char>::Break(c));
    EXPECT_THAT(Support::readBytes(folder / "tile.1.grd"), HasSubstr(" 1 -9999.  1  1 \n"));
}

/// What the writer is to write, put down without any care for speed.
template <class T>
std::string plainGrid(const MultiIndex<3>& size, const MultiIndex<3>& low, const MultiIndex<3>& high,
                      const Bytes& types, const std::vector<T>& values, int decimals) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "NCOLS " << size[0] - low[0] - high[0] << "\nNROWS " << size[1] - low[1] - high[1];
    text << std::fixed << std::setprecision(3);
    text << "\nXLLCENTER " << static_cast<double>(low[0]) * 0.25 - 7;
    text << "\nYLLCENTER " << static_cast<double>(low[1]) * 0.25 + 3;
    text << "\nCELLSIZE " << 0.25 << "\nNODATA_VALUE -9999.\n";
    text << std::setprecision(decimals == 0 ? 6 : decimals);
    const auto rowEnd = static_cast<int>(size[1] - high[1]);
    for (int k = static_cast<int>(low[1]) + 1; k <= rowEnd; ++k) {
        const int y = rowEnd - k;
        for (int x = static_cast<int>(low[0]); x < static_cast<int>(size[0] - high[0]); ++x) {
            const std::size_t place = static_cast<std::size_t>(y) * size[0] + static_cast<std::size_t>(x);
            if (types[place] == 1)
                text << " " << values[place] << " ";
            else
                text << "-9999. ";
        }
        text << "\n";
    }
    return text.str();
}

TEST_F(EsriGrid, RandomGridsEqualThePlainlyWrittenOnes) {
    std::mt19937 random(20240229);
    const auto upTo = [&](std::uint64_t most) {
        return std::uniform_int_distribution<std::uint64_t>(0, most)(random);
    };
    for (int round = 0; round < 200; ++round) {
        const MultiIndex<3> size{1 + upTo(30), 1 + upTo(30), 1};
        MultiIndex<3> low{upTo(size[0]), upTo(size[1]), 0};
        MultiIndex<3> high{upTo(size[0] - low[0]), upTo(size[1] - low[1]), 0};
        fragment->overlapLow = low;
        fragment->overlapHigh = high;
        precision = static_cast<unsigned int>(upTo(8));
        setLattice({-7, 3, 0}, 0.25, size);
        Bytes cellTypes(size[0] * size[1]);
        std::vector<float> floats(cellTypes.size());
        std::vector<int> ints(cellTypes.size());
        for (std::size_t place = 0; place < cellTypes.size(); ++place) {
            cellTypes[place] = static_cast<unsigned char>(upTo(1));
            floats[place] = std::uniform_real_distribution<float>(-1e6F, 1e6F)(random);
            ints[place] = std::uniform_int_distribution<int>()(random);
        }
        types = heldArray<unsigned char>(extents, cellTypes);
        const int decimals = static_cast<int>(precision);
        EXPECT_EQ(written(floats), plainGrid(size, low, high, cellTypes, floats, decimals));
        EXPECT_EQ(written(ints), plainGrid(size, low, high, cellTypes, ints, decimals));
    }
}

} // namespace
