// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasReader.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "sheaf/MemArray.hpp"
#include "support/LazAssembly.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/decodeLas.hpp"
#include "support/sharedData.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <stdexcept>
#include <thread>

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace {

using Color = Sheaf::Element::Color;
using Point = Geom::PhysicalSpace::point;
using Support::compressLas;
using Support::LasFileBuilder;
using Support::LasRecord;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Tidewatch::LasReader;

class LasReaderTest : public ::testing::Test {
protected:
    ~LasReaderTest() override { Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit); }

    std::string write(const std::string& name, const std::string& bytes) {
        Support::writeBytes(folder_ / name, bytes);
        return folder_ / name;
    }

    /// Reads a file into the bundle and gives its grid.
    Anchor::StrongPtr<Sheaf::Grid> read(const std::string& path) {
        report_ = LasReader().read(bundle_, path, options_);
        return gridOf(report_->grid());
    }
    Anchor::StrongPtr<Sheaf::Grid> read(const LasFileBuilder& file) {
        return read(write("a.las", file.build()));
    }

    Anchor::StrongPtr<Sheaf::Grid> gridOf(const std::string& name) {
        return bundle_.slices().at(options_.SliceTime).lock()->grids().at(name).lock();
    }

    static Anchor::StrongPtr<Sheaf::Field> field(const Sheaf::Grid& grid, const std::string& name) {
        return grid.getField(grid.findCartesianChart(""), name,
                             grid.findHighestHomogenousVertexRefinement(99));
    }

    static Sheaf::Field::Creator creator(const Sheaf::Grid& grid, const std::string& name,
                                         const std::string& fragment = "000000") {
        const auto found = field(grid, name);
        return found ? found->getCreator(grid.fragments().at(fragment)) : nullptr;
    }

    template <class T>
    static std::vector<T> values(const Sheaf::Grid& grid, const std::string& name,
                                 const std::string& fragment = "000000") {
        const auto array =
            Anchor::dynamicCast<Sheaf::TypedArray<T>>(creator(grid, name, fragment)->create(false));
        if (!array)
            throw std::runtime_error(name + " has elements of another type");
        return array->base_vector();
    }

    /// Names and element types of all fields.
    static std::map<std::string, std::string> fields(const Sheaf::Grid& grid) {
        std::map<std::string, std::string> list;
        grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
            list[stop.id.name()] = std::string(Sheaf::elementTypeName(stop.field.getElementType()));
            return true;
        });
        return list;
    }

    static LasFileBuilder varied(unsigned minor, unsigned format, std::size_t count) {
        LasFileBuilder builder;
        builder.minor = minor;
        builder.format = format;
        builder.addVariedPoints(count);
        return builder;
    }

    /// Points whose colours are all `value`.
    static LasFileBuilder coloured(std::initializer_list<std::uint16_t> values) {
        LasFileBuilder builder;
        builder.format = 2;
        for (const std::uint16_t value : values) {
            LasRecord point;
            point.rgb = {0, value, 1};
            builder.points.push_back(point);
        }
        return builder;
    }

    Support::TemporaryFolder folder_;
    Sheaf::Bundle bundle_;
    ConvLib::ReadOptions options_;
    Anchor::StrongPtr<ConvLib::InputReport> report_;
};

TEST_F(LasReaderTest, TheReportHasWhatTheFileStatesOfItself) {
    LasFileBuilder file;
    file.minor = 4;
    file.format = 7;
    file.globalEncoding = 1;
    file.addVariedPoints(3);
    file.vlrs.push_back({"Somebody", 12, "four"});
    std::string bytes = file.build();
    bytes.replace(58, 6, "Writer");
    Support::patch(bytes, 90, std::uint16_t{60});
    Support::patch(bytes, 92, std::uint16_t{2024});
    read(write("a.las", bytes));
    std::vector<std::string> facts;
    for (const auto& fact : report_->facts())
        facts.push_back(fact.name + ": " + fact.text);
    EXPECT_THAT(facts, ElementsAre("version: 1.4", "point format: 7, 36 bytes, with GPS time, colours",
                                   "created: day 60 of 2024, 2024-02-29", "software: Writer",
                                   "GPS time: seconds since 6 January 1980, less 1 000 000 000",
                                   "record: Somebody/12, 4 bytes"));
    const auto box = report_->statedBox();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->lower.z, Support::number<double>(bytes, 179 + 40));
    EXPECT_EQ(box->upper.x, Support::number<double>(bytes, 179));
}

TEST_F(LasReaderTest, AnImpossibleCreationDayIsNoDate) {
    LasFileBuilder file;
    file.addVariedPoints(1);
    std::string bytes = file.build();
    Support::patch(bytes, 90, std::uint16_t{0});
    Support::patch(bytes, 92, std::uint16_t{2024});
    read(write("a.las", bytes));
    std::vector<std::string> facts;
    for (const auto& fact : report_->facts())
        facts.push_back(fact.name + ": " + fact.text);
    EXPECT_THAT(facts, Contains("created: day 0 of 2024"));
    file.points.clear();
    read(write("b.las", file.build()));
    EXPECT_FALSE(report_->statedBox());
}

TEST_F(LasReaderTest, RecognisesTheSignatureAndNothingElse) {
    const auto recognises = [](std::string_view head) {
        return LasReader().recognises("a.las", std::as_bytes(std::span(head)));
    };
    EXPECT_TRUE(recognises("LASF\0\0"));
    EXPECT_TRUE(recognises("LASF"));
    EXPECT_FALSE(recognises("LAS"));
    EXPECT_FALSE(recognises(""));
    EXPECT_FALSE(recognises("\x89HDF"));
}

TEST_F(LasReaderTest, FileBecomesOneGridNamedAfterItInTheSliceAskedFor) {
    options_.SliceTime = 12.5;
    const auto grid = read(write("survey 2024.part.las", varied(2, 0, 3).build()));
    EXPECT_EQ(grid->name(), "survey 2024.part");
    EXPECT_EQ(report_->grid(), "survey 2024.part");
    EXPECT_EQ(bundle_.slices().begin()->first, 12.5);
    EXPECT_THAT(grid->chartNames(), ElementsAre("StandardCartesianChart3D"));
    const auto skeleton = grid->findHighestHomogenousVertexRefinement(0);
    ASSERT_TRUE(skeleton);
    EXPECT_EQ(skeleton->dimension(), 0);
    EXPECT_TRUE(skeleton->refinement().empty());
}

TEST_F(LasReaderTest, FileNameBeyondAsciiNamesTheGrid) {
    EXPECT_EQ(read(write("Küste_überflutet.laz", compressLas(varied(2, 0, 3))))->name(), "Küste_überflutet");
}

TEST_F(LasReaderTest, FieldsOfEveryFormatHaveTheirTypes) {
    const std::map<std::string, std::string> common{
        {"Positions", "point"},        {"Intensity", "uint16"},     {"ReturnNumber", "uint8"},
        {"NumberOfReturns", "uint8"},  {"Classification", "uint8"}, {"ScanDirectionFlag", "uint8"},
        {"EdgeOfFlightLine", "uint8"}, {"UserData", "uint8"},       {"PointSourceID", "uint16"},
        {"Synthetic", "uint8"},        {"KeyPoint", "uint8"},       {"Withheld", "uint8"}};
    for (unsigned format = 0; format <= 10; ++format) {
        const Support::LasParts parts(format);
        auto expected = common;
        expected["ScanAngleRank"] = parts.extended ? "int16" : "int8";
        if (format == 1 || format >= 3)
            expected["GPSTime"] = "float64";
        if (parts.rgb)
            expected.insert({{"RGB", "rgb8"}, {"Red", "uint16"}, {"Green", "uint16"}, {"Blue", "uint16"}});
        if (parts.extended)
            expected.insert({{"Overlap", "uint8"}, {"ScannerChannel", "uint8"}});
        if (parts.nearInfrared)
            expected["NearInfrared"] = "uint16";
        const auto grid =
            read(write("format" + std::to_string(format) + ".las", varied(4, format, 2).build()));
        EXPECT_EQ(fields(*grid), expected) << format;
    }
}

TEST_F(LasReaderTest, ValuesAreThoseOfTheRecordsInEveryFormat) {
    for (unsigned format = 0; format <= 10; ++format) {
        for (const bool compressed : {false, true}) {
            LasFileBuilder file = varied(4, format, 500);
            file.scale = {0.01, 0.001, 0.25};
            file.offset = {-7, 1e5, 0};
            const std::string name = (compressed ? "laz" : "las") + std::to_string(format);
            const auto grid = read(write(name, compressed ? compressLas(file, 100) : file.build()));
            const auto check = [&](const std::string& field, auto zero, auto expected) {
                std::vector<decltype(zero)> wanted;
                for (const LasRecord& point : file.points)
                    wanted.push_back(static_cast<decltype(zero)>(expected(point)));
                EXPECT_EQ(values<decltype(zero)>(*grid, field), wanted) << field << " of " << name;
            };
            using R = const LasRecord&;
            using Byte = unsigned char;
            const auto positions = values<Point>(*grid, "Positions");
            ASSERT_EQ(positions.size(), file.points.size());
            for (std::size_t i = 0; i < positions.size(); ++i) {
                ASSERT_EQ(positions[i].x, file.points[i].x * 0.01 + -7);
                ASSERT_EQ(positions[i].y, file.points[i].y * 0.001 + 1e5);
                ASSERT_EQ(positions[i].z, file.points[i].z * 0.25 + 0);
            }
            check("Intensity", static_cast<unsigned short>(0), [](R p) { return p.intensity; });
            check("ReturnNumber", Byte{0}, [](R p) { return p.returnNumber; });
            check("NumberOfReturns", Byte{0}, [](R p) { return p.numberOfReturns; });
            check("Classification", Byte{0}, [](R p) { return p.classification; });
            check("ScanDirectionFlag", Byte{0}, [](R p) { return p.scanDirection; });
            check("EdgeOfFlightLine", Byte{0}, [](R p) { return p.edgeOfFlightLine; });
            check("UserData", Byte{0}, [](R p) { return p.userData; });
            check("PointSourceID", static_cast<unsigned short>(0), [](R p) { return p.pointSourceId; });
            if (format >= 6)
                check("ScanAngleRank", static_cast<short>(0), [](R p) { return p.scanAngle; });
            else
                check("ScanAngleRank", static_cast<signed char>(0), [](R p) { return p.scanAngle; });
            if (Support::LasParts(format).gpsTime)
                check("GPSTime", 0.0, [](R p) { return p.gpsTime; });
            check("Synthetic", Byte{0}, [](R p) { return p.flags & 1; });
            check("KeyPoint", Byte{0}, [](R p) { return p.flags >> 1 & 1; });
            check("Withheld", Byte{0}, [](R p) { return p.flags >> 2 & 1; });
            if (format >= 6) {
                check("Overlap", Byte{0}, [](R p) { return p.flags >> 3; });
                check("ScannerChannel", Byte{0}, [](R p) { return p.scannerChannel; });
            }
            if (Support::LasParts(format).nearInfrared)
                check("NearInfrared", static_cast<unsigned short>(0), [](R p) { return p.nearInfrared; });
            if (Support::LasParts(format).rgb) {
                check("Red", static_cast<unsigned short>(0), [](R p) { return p.rgb[0]; });
                check("Green", static_cast<unsigned short>(0), [](R p) { return p.rgb[1]; });
                check("Blue", static_cast<unsigned short>(0), [](R p) { return p.rgb[2]; });
                const auto colours = values<Color>(*grid, "RGB");
                ASSERT_EQ(colours.size(), file.points.size());
                for (std::size_t i = 0; i < colours.size(); ++i) {
                    for (std::size_t channel = 0; channel < 3; ++channel)
                        ASSERT_EQ(colours[i][channel], file.points[i].rgb[channel] / 256);
                }
            }
        }
    }
}

TEST_F(LasReaderTest, PointsAreCutIntoFragmentsInFileOrder) {
    options_.FragmentPoints = 10;
    const LasFileBuilder file = varied(2, 0, 25);
    for (const std::string& bytes : {file.build(), compressLas(file, 7)}) {
        const auto grid = read(write("cut" + std::to_string(bytes.size()) + ".las", bytes));
        std::vector<std::string> names;
        for (const auto& [name, fragment] : grid->fragments())
            names.push_back(name);
        EXPECT_THAT(names, ElementsAre("000000", "000001", "000002"));
        EXPECT_EQ(creator(*grid, "Intensity", "000002")->extents(), (Sheaf::Extents{5}));
        // The last first: fragments may be asked for in any order.
        std::vector<unsigned short> all = values<unsigned short>(*grid, "Intensity", "000002");
        for (const char* name : {"000001", "000000"}) {
            const auto before = values<unsigned short>(*grid, "Intensity", name);
            all.insert(all.begin(), before.begin(), before.end());
        }
        ASSERT_EQ(all.size(), 25U);
        for (std::size_t i = 0; i < 25; ++i)
            EXPECT_EQ(all[i], file.points[i].intensity);
    }
}

TEST_F(LasReaderTest, FragmentSizeZeroCountsAsOneAndFullFragmentsLeaveNoEmptyOne) {
    options_.FragmentPoints = 0;
    EXPECT_EQ(read(write("a.las", varied(2, 0, 3).build()))->fragments().size(), 3U);
    options_.FragmentPoints = 5;
    EXPECT_EQ(read(write("b.las", varied(2, 0, 10).build()))->fragments().size(), 2U);
}

TEST_F(LasReaderTest, FileWithoutPointsBecomesAGridWithFieldsAndNoFragments) {
    for (const std::string& bytes : {varied(2, 3, 0).build(), compressLas(varied(2, 3, 0))}) {
        const auto grid = read(write("empty" + std::to_string(bytes.size()) + ".las", bytes));
        EXPECT_TRUE(grid->fragments().empty());
        EXPECT_TRUE(field(*grid, "Positions"));
        EXPECT_TRUE(field(*grid, "RGB"));
    }
}

// Extra bytes.

TEST_F(LasReaderTest, AttributesOfEveryTypeBecomeFieldsOfThatType) {
    LasFileBuilder file;
    file.minor = 4;
    file.format = 6;
    file.extraByteCount = 42;
    const std::vector<std::string> types{"uint8", "int8",   "uint16", "int16",   "uint32",
                                         "int32", "uint64", "int64",  "float32", "float64"};
    std::string entries;
    for (unsigned type = 1; type <= 10; ++type)
        entries += LasFileBuilder::attribute(type, types[type - 1]);
    file.describe(entries);
    LasRecord point;
    Support::append(point.extraBytes, std::uint8_t{200});
    Support::append(point.extraBytes, std::int8_t{-100});
    Support::append(point.extraBytes, std::uint16_t{50000});
    Support::append(point.extraBytes, std::int16_t{-20000});
    Support::append(point.extraBytes, std::uint32_t{4000000000});
    Support::append(point.extraBytes, std::int32_t{-2000000000});
    Support::append(point.extraBytes, std::uint64_t{18000000000000000000U});
    Support::append(point.extraBytes, std::int64_t{-9000000000000000000});
    Support::append(point.extraBytes, 1.5F);
    Support::append(point.extraBytes, -2.25);
    file.points = {point};
    for (const std::string& bytes : {file.build(), compressLas(file)}) {
        const auto grid = read(write("types" + std::to_string(bytes.size()), bytes));
        auto found = fields(*grid);
        for (const std::string& type : types)
            EXPECT_EQ(found[type], type);
        EXPECT_EQ(values<unsigned char>(*grid, "uint8").front(), 200);
        EXPECT_EQ(values<signed char>(*grid, "int8").front(), -100);
        EXPECT_EQ(values<unsigned short>(*grid, "uint16").front(), 50000);
        EXPECT_EQ(values<short>(*grid, "int16").front(), -20000);
        EXPECT_EQ(values<unsigned>(*grid, "uint32").front(), 4000000000U);
        EXPECT_EQ(values<int>(*grid, "int32").front(), -2000000000);
        EXPECT_EQ(values<unsigned long long>(*grid, "uint64").front(), 18000000000000000000U);
        EXPECT_EQ(values<long long>(*grid, "int64").front(), -9000000000000000000);
        EXPECT_EQ(values<float>(*grid, "float32").front(), 1.5F);
        EXPECT_EQ(values<double>(*grid, "float64").front(), -2.25);
    }
}

TEST_F(LasReaderTest, ScaleOrOffsetMakesAnAttributeDouble) {
    LasFileBuilder file;
    file.extraByteCount = 6;
    file.describe(LasFileBuilder::attribute(3, "scaled", 8, 0.1) +
                  LasFileBuilder::attribute(4, "shifted", 16, 9, -5) +
                  LasFileBuilder::attribute(3, "both", 24, 2, 0.5));
    LasRecord point;
    Support::append(point.extraBytes, std::uint16_t{7});
    Support::append(point.extraBytes, std::int16_t{-3});
    Support::append(point.extraBytes, std::uint16_t{4});
    file.points = {point};
    const auto grid = read(file);
    EXPECT_EQ(values<double>(*grid, "scaled").front(), 7 * 0.1);
    EXPECT_EQ(values<double>(*grid, "shifted").front(), -8.0);
    EXPECT_EQ(values<double>(*grid, "both").front(), 8.5);
}

TEST_F(LasReaderTest, ReflectanceIsFloatUnderEitherName) {
    for (const char* name : {"Reflectance", "BSG_Reflectance"}) {
        LasFileBuilder file;
        file.extraByteCount = 2;
        file.describe(LasFileBuilder::attribute(3, name, 24, 0.001, -30));
        LasRecord point;
        Support::append(point.extraBytes, std::uint16_t{1500});
        file.points = {point};
        const auto grid = read(write(std::string(name) + ".las", file.build()));
        EXPECT_EQ(values<float>(*grid, "Reflectance").front(), static_cast<float>(1500 * 0.001 + -30));
        EXPECT_FALSE(field(*grid, "BSG_Reflectance"));
    }
}

TEST_F(LasReaderTest, AmplitudeIsRawOnlyAsUnscaled16Bits) {
    const auto amplitude = [&](unsigned type, unsigned options, const std::string& value) {
        LasFileBuilder file;
        file.extraByteCount = value.size();
        file.describe(LasFileBuilder::attribute(type, "Amplitude", options, 0.01, 0));
        LasRecord point;
        point.extraBytes = value;
        file.points = {point};
        bundle_.removeSlice(0);
        return read(file);
    };
    std::string two;
    Support::append(two, std::uint16_t{0xBEEF});
    EXPECT_EQ(values<unsigned short>(*amplitude(3, 0, two), "Amplitude").front(), 0xBEEF);
    EXPECT_EQ(values<float>(*amplitude(3, 8, two), "Amplitude").front(), static_cast<float>(0xBEEF * 0.01));
    EXPECT_EQ(values<float>(*amplitude(1, 0, "\x07"), "Amplitude").front(), 7.0F);
    std::string eight;
    Support::append(eight, 1e300);
    EXPECT_EQ(values<float>(*amplitude(10, 0, eight), "Amplitude").front(),
              std::numeric_limits<float>::infinity());
}

TEST_F(LasReaderTest, NamesThatAFieldMayNotHaveAreMapped) {
    LasFileBuilder file;
    file.extraByteCount = 9;
    std::string entries;
    for (const char* name : {"a/b\\c\x1b", "", ".", "..", "Intensity", "Intensity", "RGB", "", "Intensity_2"})
        entries += LasFileBuilder::attribute(1, name);
    file.describe(entries);
    LasRecord point;
    point.extraBytes = "123456789";
    file.points = {point};
    const auto grid = read(file);
    const std::vector<std::string> expected{"a_b_c_", "ExtraBytes2", "_",
                                            "__",     "Intensity_2", "Intensity_3",
                                            "RGB",    "ExtraBytes8", "Intensity_2_2"};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_TRUE(field(*grid, expected[i])) << expected[i];
        EXPECT_EQ(values<unsigned char>(*grid, expected[i]).front(), '1' + i);
    }
}

TEST_F(LasReaderTest, ThousandsOfAttributesOfOneNameAreRead) {
    LasFileBuilder file;
    file.extraByteCount = 1000;
    for (int record = 0; record < 4; ++record) {
        std::string entries;
        for (int i = 0; i < 250; ++i)
            entries += LasFileBuilder::attribute(1, "same");
        file.describe(entries);
    }
    file.addVariedPoints(2);
    const auto grid = read(file);
    EXPECT_EQ(values<unsigned char>(*grid, "same_1000")[1],
              static_cast<unsigned char>(file.points[1].extraBytes[999]));
}

// Colours.

TEST_F(LasReaderTest, ColoursOf8BitsStayAsTheyAre) {
    const auto grid = read(coloured({0, 255, 7}));
    const auto colours = values<Color>(*grid, "RGB");
    EXPECT_EQ(colours[1].green(), 255);
    EXPECT_EQ(colours[2].green(), 7);
    EXPECT_EQ(colours[2].blue(), 1);
}

TEST_F(LasReaderTest, OneWideChannelAnywhereDividesAllOfTheFile) {
    options_.FragmentPoints = 2;
    const auto grid = read(coloured({255, 255, 255, 255, 255, 256}));
    // The first fragment by itself looks like eight bits.
    EXPECT_EQ(values<Color>(*grid, "RGB", "000000")[0].green(), 0);
    EXPECT_EQ(values<Color>(*grid, "RGB", "000002")[0].green(), 0);
    EXPECT_EQ(values<Color>(*grid, "RGB", "000002")[1].green(), 1);
}

TEST_F(LasReaderTest, PassThatMeetsAWideChannelGivesColoursAtOnce) {
    options_.FragmentPoints = 2;
    const auto grid = read(coloured({65535, 0, 1, 2}));
    static_cast<void>(values<Point>(*grid, "Positions"));
    EXPECT_TRUE(creator(*grid, "RGB")->available());
    EXPECT_EQ(values<Color>(*grid, "RGB")[0].green(), 255);
}

TEST_F(LasReaderTest, ColoursStayOutWhileTheirDepthIsUnknownAndOtherFieldsAreNotMadeAgain) {
    options_.FragmentPoints = 2;
    const auto grid = read(coloured({1, 2, 3, 4}));
    static_cast<void>(values<Point>(*grid, "Positions"));
    EXPECT_TRUE(creator(*grid, "Intensity")->available());
    EXPECT_FALSE(creator(*grid, "RGB")->available());
    const auto before = creator(*grid, "Intensity")->available();
    EXPECT_EQ(values<Color>(*grid, "RGB")[1].green(), 2);
    EXPECT_EQ(creator(*grid, "Intensity")->available(), before);
    // That pass has looked through everything: the next fragment's colours come with its other fields.
    static_cast<void>(values<Point>(*grid, "Positions", "000001"));
    EXPECT_TRUE(creator(*grid, "RGB", "000001")->available());
}

TEST_F(LasReaderTest, PointsOfNarrowColoursAreDecodedOnce) {
    // One tick is at most 16 384 points.
    constexpr std::size_t points = 160'000;
    LasFileBuilder file = varied(2, 3, points);
    for (LasRecord& point : file.points) {
        for (auto& channel : point.rgb)
            channel &= 0xFF;
    }
    const std::string path = write("a.laz", compressLas(file, 10'000));
    const std::vector<std::string> fragments{"000000", "000001", "000002", "000003"};
    options_.FragmentPoints = points / fragments.size();
    for (const bool coloursFirst : {false, true}) {
        std::size_t ticks = 0;
        options_.Tick = [&](const std::string&, double) { ++ticks; };
        options_.SliceTime += 1;
        const auto grid = read(path);
        if (coloursFirst)
            static_cast<void>(values<Color>(*grid, "RGB", fragments[0]));
        for (const std::string& fragment : fragments)
            static_cast<void>(values<Point>(*grid, "Positions", fragment));
        std::size_t number = 0;
        for (const std::string& fragment : fragments) {
            for (const Color& colour : values<Color>(*grid, "RGB", fragment))
                ASSERT_EQ(colour.green(), file.points[number++].rgb[1]);
            static_cast<void>(values<double>(*grid, "GPSTime", fragment));
        }
        EXPECT_EQ(number, points);
        EXPECT_LE(ticks, points / 16'384 + fragments.size() + 1)
            << (coloursFirst ? "colours first" : "positions first");
        EXPECT_GE(ticks, points / 16'384);
    }
}

TEST_F(LasReaderTest, NarrowColoursThatExceedTheCacheAreStillRight) {
    LasFileBuilder file = varied(2, 3, 40'000);
    for (LasRecord& point : file.points) {
        for (auto& channel : point.rgb)
            channel &= 0xFF;
    }
    options_.FragmentPoints = 10'000;
    Anchor::Cache::MemCache().setLimit(1'500'000);
    const auto grid = read(write("a.laz", compressLas(file, 5'000)));
    for (std::size_t fragment = 0; fragment < 4; ++fragment) {
        const auto colours = values<Color>(*grid, "RGB", "00000" + std::to_string(fragment));
        const auto times = values<double>(*grid, "GPSTime", "00000" + std::to_string(fragment));
        for (std::size_t i = 0; i < colours.size(); ++i) {
            ASSERT_EQ(colours[i].blue(), file.points[fragment * 10'000 + i].rgb[2]);
            ASSERT_EQ(times[i], file.points[fragment * 10'000 + i].gpsTime);
        }
        EXPECT_LE(Anchor::Cache::MemCache().bytesInUse(), 2'000'000U);
    }
}

TEST_F(LasReaderTest, FieldsThatAreNotWantedDoNotComeAlongAndAreMadeWhenAskedFor) {
    std::set<std::string> wanted{"Positions", "Intensity"};
    options_.IsWanted = [&](const std::string& field) { return wanted.contains(field); };
    const auto grid = read(coloured({300, 2, 3, 4}));
    static_cast<void>(values<Point>(*grid, "Positions"));
    EXPECT_TRUE(creator(*grid, "Intensity")->available());
    EXPECT_FALSE(creator(*grid, "Classification")->available());
    EXPECT_FALSE(creator(*grid, "RGB")->available());
    EXPECT_EQ(values<Color>(*grid, "RGB")[0].green(), 1);
    EXPECT_FALSE(creator(*grid, "Classification")->available());
    // The host may change its mind.
    wanted.insert("Classification");
    static_cast<void>(values<std::uint8_t>(*grid, "UserData"));
    EXPECT_TRUE(creator(*grid, "Classification")->available());
}

TEST_F(LasReaderTest, PassesThatHaveSeenTheWholeFileSettleTheDepth) {
    options_.FragmentPoints = 2;
    const std::string path = write("a.las", coloured({1, 2, 3, 4}).build());
    const auto grid = read(path);
    static_cast<void>(values<Point>(*grid, "Positions", "000001"));
    static_cast<void>(values<Point>(*grid, "Positions", "000000"));
    EXPECT_TRUE(creator(*grid, "RGB", "000000")->available());
    EXPECT_EQ(values<Color>(*grid, "RGB", "000000")[1].green(), 2);
}

TEST_F(LasReaderTest, ColoursOfOneStreamAreFoundThoughItOnlyReadsForward) {
    options_.FragmentPoints = 300;
    LasFileBuilder file = varied(2, 2, 1000);
    for (LasRecord& point : file.points)
        point.rgb = {1, 2, 3};
    file.points[10].rgb[0] = 511;
    const auto grid = read(write("a.laz", Support::LazAssembly::make(file, {1000}).buildStream()));
    EXPECT_EQ(values<Color>(*grid, "RGB", "000003")[5].green(), 0);
    EXPECT_EQ(values<Color>(*grid, "RGB", "000000")[10].red(), 1);
}

// Passes and the cache.

TEST_F(LasReaderTest, OnePassGivesAllFieldsOfTheFragment) {
    const std::string path = write("a.las", varied(2, 3, 100).build());
    const auto grid = read(path);
    static_cast<void>(values<unsigned short>(*grid, "Intensity"));
    // From here on nothing can be decoded any more.
    std::filesystem::resize_file(path, 1000);
    for (const auto& [name, type] : fields(*grid))
        EXPECT_TRUE(creator(*grid, name)->create(false)) << name;
    EXPECT_THROW(static_cast<void>(creator(*grid, "Intensity")->create(true)), Anchor::FileError);
}

TEST_F(LasReaderTest, FieldsDecodedAloneOfLayersAreThoseOfThePlainFile) {
    // Each field of each fragment is decoded by itself, without other fields and without the cache.
    options_.IsWanted = [](const std::string&) { return false; };
    options_.FragmentPoints = 1'000;
    for (const unsigned format : {6U, 7U, 8U, 9U, 10U}) {
        for (const bool narrowColours : {true, false}) {
            LasFileBuilder file;
            file.minor = 4;
            file.format = format;
            // Beyond the bytes that can be selected, too; one number lies on both sides of the limit.
            file.extraByteCount = 22;
            file.describe(LasFileBuilder::attribute(1, "a") + LasFileBuilder::attribute(3, "b") +
                          LasFileBuilder::attribute(10, "c") + LasFileBuilder::attribute(9, "d") +
                          LasFileBuilder::attribute(5, "e") + LasFileBuilder::attribute(3, "f"));
            file.addVariedPoints(2'500);
            for (LasRecord& point : file.points) {
                for (auto& channel : point.rgb)
                    channel = static_cast<std::uint16_t>(narrowColours ? channel & 0xFF : channel);
            }
            bundle_ = Sheaf::Bundle();
            const auto plain = read(write("plain.las", file.build()));
            const auto layered = read(write("layered.laz", compressLas(file, 400)));
            const auto names = fields(*plain);
            ASSERT_EQ(fields(*layered), names);
            EXPECT_EQ(names.contains("Red"), format == 7 || format == 8 || format == 10);
            Anchor::Cache::MemCache().setLimit(0);
            for (const auto& entry : names) {
                const std::string& name = entry.first;
                for (const std::string fragment : {"000001", "000002", "000000"}) {
                    const auto expected = creator(*plain, name, fragment)->create(true);
                    const auto got = creator(*layered, name, fragment)->create(true);
                    const auto typed = Anchor::dynamicCast<Sheaf::MemBase>(got);
                    ASSERT_TRUE(typed) << name;
                    Sheaf::visitElementType(typed->elementType(), [&](auto tag) {
                        using T = typename decltype(tag)::type;
                        const auto bytes = [](const auto& data) {
                            const auto& list = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data)->base_vector();
                            return std::string(reinterpret_cast<const char*>(list.data()),
                                               list.size() * sizeof(T));
                        };
                        EXPECT_TRUE(bytes(got) == bytes(expected))
                            << name << " of fragment " << fragment << ", format " << format;
                    });
                }
            }
        }
    }
}

TEST_F(LasReaderTest, AttributesComeAlongOnlyAsFarAsTheCacheHoldsThem) {
    LasFileBuilder file;
    file.extraByteCount = 100;
    std::string entries;
    for (int i = 0; i < 100; ++i)
        entries += LasFileBuilder::attribute(1, fmt::format("a{}", i));
    file.describe(entries);
    file.addVariedPoints(1000);
    const auto grid = read(file);
    // Room for the format's fields, the three flags, and some of the attributes.
    Anchor::Cache::MemCache().setLimit(60'000);
    static_cast<void>(values<Point>(*grid, "Positions"));
    EXPECT_TRUE(creator(*grid, "PointSourceID")->available());
    EXPECT_TRUE(creator(*grid, "a0")->available());
    EXPECT_FALSE(creator(*grid, "a99")->available());
    EXPECT_LE(Anchor::Cache::MemCache().bytesInUse(), 60'000U);
    EXPECT_EQ(values<unsigned char>(*grid, "a99")[7],
              static_cast<unsigned char>(file.points[7].extraBytes[99]));
    // What the point format has comes whole, however small the cache.
    Anchor::Cache::MemCache().setLimit(1);
    static_cast<void>(creator(*grid, "Positions")->create(true));
    EXPECT_TRUE(creator(*grid, "PointSourceID")->available());
    EXPECT_FALSE(creator(*grid, "a0")->available());
}

TEST_F(LasReaderTest, ArraysAreReadOnDemandOnly) {
    const std::string path = write("a.las", varied(2, 0, 100).build());
    const std::uint64_t before = Anchor::Cache::MemCache().bytesInUse();
    const auto grid = read(path);
    EXPECT_EQ(Anchor::Cache::MemCache().bytesInUse(), before);
    EXPECT_EQ(creator(*grid, "Positions")->extents(), (Sheaf::Extents{100}));
}

TEST_F(LasReaderTest, ArrayBeyondTheHostsLimitIsRefusedWhenItIsAskedFor) {
    options_.MaximumArrayBytes = 20000;
    const auto grid = read(varied(2, 0, 1000));
    try {
        static_cast<void>(creator(*grid, "Positions")->create(false));
        FAIL() << "it is made";
    } catch (const Anchor::LimitError& error) {
        EXPECT_THAT(error.what(), HasSubstr("a.las: Positions of fragment 000000: 24000 bytes"));
    }
    EXPECT_EQ(values<unsigned short>(*grid, "Intensity").size(), 1000U);
}

TEST_F(LasReaderTest, FragmentsBeyondTheHostsLimitAreRefused) {
    options_.MaximumArrayBytes = 100'000;
    options_.FragmentPoints = 1;
    EXPECT_THROW(read(varied(2, 0, 1000)), Anchor::LimitError);
}

TEST_F(LasReaderTest, TickTellsTheFileAndTheShareAndMayStop) {
    const std::string path = write("a.las", varied(2, 0, 100000).build());
    std::vector<double> shares;
    options_.Tick = [&](const std::string& file, double share) {
        EXPECT_EQ(file, path);
        shares.push_back(share);
    };
    static_cast<void>(values<Point>(*read(path), "Positions"));
    ASSERT_GE(shares.size(), 6U);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GT(shares.front(), 0.0);
    EXPECT_LE(shares.back(), 1.0);

    bundle_.removeSlice(0);
    bool stop = true;
    options_.Tick = [&](const std::string&, double) {
        if (stop)
            throw std::runtime_error("interrupted");
    };
    const auto grid = read(path);
    EXPECT_THROW(static_cast<void>(creator(*grid, "Positions")->create(false)), std::runtime_error);
    stop = false;
    EXPECT_EQ(values<Point>(*grid, "Positions").size(), 100000U);
}

TEST_F(LasReaderTest, ArraysOutliveTheGridTheyCameFrom) {
    auto grid = read(varied(2, 0, 10));
    const auto positions = creator(*grid, "Positions");
    const std::string name = grid->name();
    grid.reset();
    bundle_.removeSlice(0);
    const auto array = Anchor::dynamicCast<Sheaf::TypedArray<Point>>(positions->create(false));
    ASSERT_TRUE(array);
    EXPECT_EQ(array->base_vector().size(), 10U);
}

TEST_F(LasReaderTest, HundredsOfFilesAreReadTurnByTurn) {
    std::vector<Anchor::StrongPtr<Sheaf::Grid>> grids;
    options_.FragmentPoints = 50;
    const LasFileBuilder file = varied(2, 0, 100);
    const std::string bytes = compressLas(file, 30);
    for (int i = 0; i < 200; ++i)
        grids.push_back(read(write("tile" + std::to_string(i) + ".laz", bytes)));
    for (const char* fragment : {"000000", "000001"}) {
        for (const auto& grid : grids)
            EXPECT_EQ(values<unsigned short>(*grid, "Intensity", fragment)[7],
                      file.points[fragment[5] == '0' ? 7 : 57].intensity);
    }
    std::size_t open = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored).string().find("/tile") != std::string::npos)
            ++open;
    }
    EXPECT_GT(open, 0U);
    EXPECT_LE(open, 64U);
}

TEST_F(LasReaderTest, SeveralThreadsGetTheSameArrays) {
    options_.FragmentPoints = 500;
    const LasFileBuilder file = varied(2, 3, 5000);
    const auto grid = read(write("a.laz", compressLas(file, 700)));
    Anchor::Cache::MemCache().setLimit(200'000); // so that much is made anew
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 40; ++i) {
                const unsigned fragment = (i * 7 + t * 3) % 10;
                const auto got =
                    values<unsigned short>(*grid, "Intensity", "00000" + std::to_string(fragment));
                const auto colours = values<Color>(*grid, "RGB", "00000" + std::to_string(fragment));
                for (std::size_t p = 0; p < got.size(); ++p) {
                    const LasRecord& wanted = file.points[fragment * 500 + p];
                    if (got[p] != wanted.intensity || colours[p].red() != wanted.rgb[0] / 256)
                        ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

// Reports.

TEST_F(LasReaderTest, ReportTellsKindAndStep) {
    LasFileBuilder file = varied(4, 7, 2);
    file.scale = {0.01, 0.001, -0.5};
    const std::string path = write("a.laz", compressLas(file));
    static_cast<void>(read(path));
    EXPECT_EQ(report_->file(), path);
    EXPECT_EQ(report_->kind(), "LAS 1.4, point format 7, compressed");
    EXPECT_EQ(report_->coordinateStep(), (Geom::PhysicalSpace::vector{0.01, 0.001, 0.5}));
    static_cast<void>(read(write("b.las", varied(0, 1, 2).build())));
    EXPECT_EQ(report_->kind(), "LAS 1.0, point format 1");
}

TEST_F(LasReaderTest, ReportListsWhatTheHeaderShowsFromTheStart) {
    LasFileBuilder plain;
    plain.points.resize(2);
    static_cast<void>(read(write("plain.las", plain.build())));
    EXPECT_TRUE(report_->notCarried().empty());

    LasFileBuilder file;
    file.minor = 4;
    file.format = 10;
    file.globalEncoding = 1 | 8;
    file.extraByteCount = 8;
    file.describe(LasFileBuilder::attribute(0, "blob\n", 3) + LasFileBuilder::attribute(1, "fine"));
    file.vlrs.push_back({"LASF_Projection", 2112, "PROJCS[]"});
    file.points.resize(1);
    file.points[0].extraBytes = std::string(8, '\0');
    static_cast<void>(read(write("full.las", file.build())));
    EXPECT_THAT(report_->notCarried(),
                ElementsAre("mark of synthetic return numbers", "waveforms",
                            "extra bytes \"blob\\x0a\" (not a number)", "4 undescribed extra bytes"));
}

TEST_F(LasReaderTest, StatementHasWhatTheFileStates) {
    LasFileBuilder file;
    file.minor = 4;
    file.format = 6;
    file.globalEncoding = 1 | 16;
    file.scale = {0.01, 0.001, 0.5};
    file.offset = {-3, 1e6, 0};
    file.vlrs.push_back({"LASF_Projection", 2112, std::string("PROJCS[]\0", 9)});
    file.vlrs.push_back({"Somebody", 7, std::string("a\0b", 3)});
    file.evlrs.push_back({"Somebody", 8, std::string(70'000, 'x')});
    file.points.resize(1);
    std::string bytes = file.build();
    Support::patch(bytes, 4, std::uint16_t{77});
    bytes.replace(26, 7, "Scanner");
    const auto grid = read(write("full.las", bytes));
    const Sheaf::FileStatement& statement = grid->statement();
    EXPECT_EQ(statement.step, (std::array{0.01, 0.001, 0.5}));
    EXPECT_EQ(statement.offset, (std::array{-3.0, 1e6, 0.0}));
    EXPECT_EQ(statement.gpsTime, Sheaf::FileStatement::GpsTime::Adjusted);
    EXPECT_EQ(statement.fileSourceId, 77);
    EXPECT_EQ(statement.systemIdentifier, "Scanner");
    ASSERT_EQ(statement.records.size(), 3U);
    EXPECT_EQ(statement.records[1],
              (Sheaf::FileRecord{"Somebody", 7, "", {std::uint8_t{'a'}, 0, std::uint8_t{'b'}}}));
    EXPECT_EQ(statement.records[2].bytes, std::vector<std::uint8_t>(70'000, 'x'));
    EXPECT_EQ(grid->findChart("")->referenceSystem(), "PROJCS[]");

    file.globalEncoding = 0;
    file.scale[1] = -0.001;
    const auto other = read(write("week.las", file.build()));
    EXPECT_EQ(other->statement().gpsTime, Sheaf::FileStatement::GpsTime::Week);
    EXPECT_EQ(other->statement().step, std::nullopt) << "a step below 0 is not worth writing again";
}

TEST_F(LasReaderTest, BitSaysWhichOfTextAndKeysCounts) {
    for (const bool hasBit : {false, true}) {
        LasFileBuilder file;
        file.minor = 4;
        file.globalEncoding = hasBit ? 16 : 0;
        file.vlrs.push_back({"LASF_Projection", 2112, "PROJCS[]"});
        file.vlrs.push_back({"LASF_Projection", 34735, std::string(16, '\1')});
        file.points.resize(1);
        const auto grid = read(write(hasBit ? "text.las" : "keys.las", file.build()));
        EXPECT_EQ(grid->findChart("")->referenceSystem(), hasBit ? "PROJCS[]" : "");
    }
}

TEST_F(LasReaderTest, FieldsOfExtraBytesKnowHowTheyWereStored) {
    LasFileBuilder file;
    file.extraByteCount = 5;
    std::string scaled = LasFileBuilder::attribute(3, "a/b", 8 | 16 | 1, 0.5, -2);
    Support::patch(scaled, 40, std::uint64_t{65535});
    scaled.replace(160, 4, "note");
    file.describe(scaled + LasFileBuilder::attribute(1, "plain") + LasFileBuilder::attribute(11, "pair"));
    LasRecord point;
    point.extraBytes = std::string("\x04\0\x09\x05\x06", 5);
    file.points = {point};
    const auto grid = read(file);
    const auto& encoding = field(*grid, "a_b")->encoding();
    ASSERT_TRUE(encoding);
    EXPECT_EQ(encoding->name, "a/b");
    EXPECT_EQ(encoding->description, "note");
    EXPECT_TRUE(*encoding->type == typeid(unsigned short));
    EXPECT_EQ(encoding->scale, 0.5);
    EXPECT_EQ(encoding->offset, -2.0);
    EXPECT_EQ(encoding->noData, 65535.0L);
    EXPECT_EQ(field(*grid, "plain")->encoding()->scale, std::nullopt);
    EXPECT_EQ(values<unsigned char>(*grid, "pair_1").front(), 5);
    EXPECT_EQ(values<unsigned char>(*grid, "pair_2").front(), 6);
    EXPECT_EQ(field(*grid, "pair_2")->encoding()->name, "pair_2");
    EXPECT_FALSE(field(*grid, "Intensity")->encoding());
}

// Refusals.

TEST_F(LasReaderTest, TwoFilesOfOneNameInOneSliceAreAnErrorThatNamesBoth) {
    const std::string first = write("a.las", varied(2, 0, 2).build());
    std::filesystem::create_directory(folder_ / "other");
    const std::string second = write("other/a.laz", compressLas(varied(2, 0, 2)));
    static_cast<void>(read(first));
    try {
        static_cast<void>(read(second));
        FAIL() << "both are taken";
    } catch (const Anchor::Error& error) {
        EXPECT_THAT(error.what(), HasSubstr(first));
        EXPECT_THAT(error.what(), HasSubstr(second));
    }
    EXPECT_TRUE(gridOf("a"));
}

TEST_F(LasReaderTest, FileNameThatIsNoNameOfAGridIsRefused) {
    const std::string path = write("line\nbreak.las", varied(2, 0, 2).build());
    try {
        static_cast<void>(read(path));
        FAIL() << "it is taken";
    } catch (const Anchor::FormatError& error) {
        EXPECT_THAT(error.what(), HasSubstr("\"line\\x0abreak\", holds a control character"));
    }
}

TEST_F(LasReaderTest, DamagedFileLeavesTheBundleAsItWas) {
    std::string bytes = varied(2, 0, 2).build();
    bytes[104] = 99;
    EXPECT_THROW(static_cast<void>(read(write("a.las", bytes))), Anchor::FormatError);
    EXPECT_TRUE(bundle_.slices().empty());
    EXPECT_THROW(static_cast<void>(read(folder_ / "missing.las")), Anchor::FileError);
    options_.SliceTime = std::nan("");
    EXPECT_THROW(static_cast<void>(read(write("a.las", varied(2, 0, 2).build()))), Anchor::ModelError);
}

// Files that nobody here made.

TEST_F(LasReaderTest, SharedFilesGiveWhatTheirRecordsHold) {
    bool any = false;
    for (const char* name : {"autzen_trim.laz", "autzen_trim_7.las", "extrabytes.las", "test1_4.las",
                             "1.2-with-color.las", "epsg_4326.las"}) {
        const std::string path = Support::sharedData(name);
        if (path.empty())
            continue;
        any = true;
        options_.FragmentPoints = 30000;
        const auto grid = read(path);
        const auto records = Support::decodeLas(path);
        std::uint64_t largest = 0;
        for (const LasRecord& record : records)
            largest = std::max<std::uint64_t>(largest, *std::ranges::max_element(record.rgb));
        std::size_t i = 0;
        for (const auto& [fragment, id] : grid->fragments()) {
            const auto positions = values<Point>(*grid, "Positions", fragment);
            const auto classes = values<unsigned char>(*grid, "Classification", fragment);
            const auto colours = field(*grid, "RGB") ? values<Color>(*grid, "RGB", fragment)
                                                     : std::vector<Color>(positions.size());
            for (std::size_t p = 0; p < positions.size(); ++p, ++i) {
                ASSERT_EQ(classes[p], records[i].classification);
                ASSERT_EQ(colours[p].red(), largest > 255 ? records[i].rgb[0] / 256 : records[i].rgb[0]);
            }
        }
        EXPECT_EQ(i, records.size()) << name;
    }
    if (!any)
        GTEST_SKIP() << "no sample data: not one file is there";
}

TEST_F(LasReaderTest, SharedFileWithExtraBytesHasTheirFields) {
    TIDEWATCH_NEED_SHARED(path, "extrabytes.las");
    const auto grid = read(path);
    auto found = fields(*grid);
    EXPECT_EQ(found["Intensity_2"], "uint32") << "\"Intensity\" is taken by the record's own";
    EXPECT_EQ(found["Time"], "uint64");
    EXPECT_EQ(found["Colors_3"], "uint16");
    const auto own = values<unsigned short>(*grid, "Intensity");
    const auto extra = values<unsigned>(*grid, "Intensity_2");
    const auto time = values<double>(*grid, "GPSTime");
    const auto extraTime = values<unsigned long long>(*grid, "Time");
    for (std::size_t i = 0; i < own.size(); ++i) {
        ASSERT_EQ(extra[i], own[i]);
        ASSERT_EQ(extraTime[i], static_cast<unsigned long long>(time[i]));
    }
}

} // namespace
