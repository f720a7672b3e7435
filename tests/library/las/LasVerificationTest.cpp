// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasVerification.hpp"

#include "anchor/Error.hpp"
#include "library/las/RecordedLas.hpp"
#include "readers/registerReaders.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/ThreadWorkers.hpp"

#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ExportLib::LasSettings;
using Support::GridBuilder;
using Support::patch;
using Support::Points;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::size_t pointsOfFragment[] = {700, 1, 300};

template <class T>
std::vector<T> numbers(std::size_t count, std::mt19937& random, int lowest, int highest) {
    std::uniform_int_distribution<int> one(lowest, highest);
    std::vector<T> list;
    for (std::size_t i = 0; i < count; ++i)
        list.push_back(static_cast<T>(one(random)));
    return list;
}

/// Every attribute, over three fragments.
void buildFull(Sheaf::Bundle& bundle, const std::string&) {
    std::mt19937 random(7);
    GridBuilder grid(bundle, 0, "g");
    for (std::size_t f = 0; f < std::size(pointsOfFragment); ++f) {
        const std::size_t n = pointsOfFragment[f];
        const std::string name = std::to_string(f);
        const auto x = numbers<double>(n, random, -900'000, 900'000);
        Points points;
        for (std::size_t i = 0; i < n; ++i)
            points.push_back({4e5 + x[i] / 977, 5e6 + x[n - 1 - i] / 1000, static_cast<double>(i) / 3});
        std::vector<Geom::RGB<unsigned char>> colors(n);
        for (auto& color : colors) {
            for (unsigned char& channel : color)
                channel = static_cast<unsigned char>(random());
        }
        auto reflectance = numbers<float>(n, random, -30, 9);
        for (float& value : reflectance)
            value += 0.37F;
        grid.field("Positions", name, points)
            .field("Intensity", name, numbers<unsigned short>(n, random, 0, 65535))
            .field("ReturnNumber", name, numbers<unsigned char>(n, random, 0, 18))
            .field("NumberOfReturns", name, numbers<unsigned char>(n, random, 0, 18))
            .field("Classification", name, numbers<unsigned char>(n, random, 0, 255))
            .field("EdgeOfFlightLine", name, numbers<unsigned char>(n, random, 0, 3))
            .field("ScanDirectionFlag", name, numbers<unsigned char>(n, random, 0, 3))
            .field("UserData", name, numbers<unsigned char>(n, random, 0, 255))
            .field("PointSourceID", name, numbers<unsigned short>(n, random, 0, 65535))
            .field("GPSTime", name, numbers<double>(n, random, -100, 100))
            .field("RGB", name, colors)
            .field("Reflectance", name, reflectance)
            .field("Amplitude", name, numbers<unsigned short>(n, random, 0, 65535));
        if (f != 1)
            grid.field("ScanAngleRank", name, numbers<short>(n, random, -15000, 15000));
    }
}

void buildSmall(Sheaf::Bundle& bundle, const std::string&) {
    GridBuilder(bundle, 0, "g")
        .field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}, {2, 2, 4}})
        .field("Intensity", "", std::vector<unsigned short>{10, 20, 30})
        .field("ReturnNumber", "", std::vector<unsigned char>{1, 2, 2})
        .field("Reflectance", "", std::vector<float>{-20, 0, 2});
}

class LasVerificationTest : public ::testing::Test {
protected:
    LasVerificationTest() { registerReaders(); }

    struct Outcome {
        std::string failure;
        std::vector<std::string> notes;
        std::uint64_t pointsOfPasses = 0;
    };

    /// Exports, changes the bytes of a file, and checks it.
    static Outcome check(BuildingReader::Build build, LasSettings settings,
                         const std::function<void(std::string&)>& change = {}, std::size_t file = 0,
                         unsigned workers = 1) {
        RecordedLas recorded(std::move(build), std::move(settings));
        Outcome outcome;
        LasVerification verification(recorded.settings());
        if (workers > 1)
            verification.workers = Anchor::makeStrong<Support::ThreadWorkers>(workers);
        verification.beginPass = [&](std::uint64_t points) { outcome.pointsOfPasses += points; };
        const ConvLib::WrittenFile& written = recorded.exporter().writtenFiles().at(file);
        if (change) {
            std::string bytes = Support::readBytes(written.path);
            change(bytes);
            Support::writeBytes(written.path, bytes);
        }
        const LasRecorder::Grid& grid = recorded.grid();
        try {
            const LasVerification::File checked{written.path, "out/a.las", written.items};
            verification.checkCount(checked);
            outcome.notes = verification.compare(checked, grid.plan, grid.files.at(file));
        } catch (const Anchor::FormatError& error) {
            outcome.failure = error.what();
        }
        return outcome;
    }

    static LasSettings plain(int version = 4) {
        LasSettings settings;
        settings.version = version;
        settings.uncompressed = true;
        return settings;
    }

    // Places in the plain file of buildSmall: LAS 1.4 with one description of extra bytes.
    static constexpr std::size_t points = 375 + 54 + 192;
    static constexpr std::size_t recordLength = 32;
};

TEST_F(LasVerificationTest, FilesOfTheExporterHoldWhatWasHandedOver) {
    for (const int version : {2, 3, 4}) {
        for (const bool uncompressed : {false, true}) {
            for (const int source : {0, 77}) {
                LasSettings settings = plain(version);
                settings.uncompressed = uncompressed;
                settings.pointSourceID = source;
                const Outcome outcome = check(buildFull, settings);
                EXPECT_EQ(outcome.failure, "") << version << uncompressed << source;
                EXPECT_EQ(outcome.pointsOfPasses, 1001U);
            }
        }
    }
}

void buildCarried(Sheaf::Bundle& bundle, const std::string& name) {
    buildFull(bundle, name);
    const auto slice = bundle.slices().begin()->second.lock();
    const auto grid = slice->grids().begin()->second.lock();
    const auto vertices = grid->skeletons().findVertices(-1)->representations()(grid->findCartesianChart(""));
    std::mt19937 random(3);
    const auto add = [&](const std::string& field, const std::type_info& type, auto make) {
        const auto made = vertices->makeField(field, type);
        for (const auto& id : vertices->Positions()->getFragmentIDs()) {
            const auto points = vertices->Positions()->getCreator(id)->extents()->elementCount().value();
            made->addFragment(id, make(static_cast<std::size_t>(points)));
        }
        return made;
    };
    for (const char* const flag : {"Synthetic", "KeyPoint", "Withheld", "Overlap", "ScannerChannel"})
        add(flag, typeid(unsigned char),
            [&](std::size_t n) { return Support::held(numbers<unsigned char>(n, random, 0, 3)); });
    for (const char* const channel : {"Red", "Green", "Blue", "NearInfrared"})
        add(channel, typeid(unsigned short),
            [&](std::size_t n) { return Support::held(numbers<unsigned short>(n, random, 0, 65535)); });
    add("Height", typeid(double), [&](std::size_t n) {
        auto heights = numbers<double>(n, random, -400, 400);
        heights.at(0) = std::numeric_limits<double>::quiet_NaN();
        return Support::held(heights);
    })->setEncoding({"Height above ground", "[m]", &typeid(short), 0.01, 5.0, -32768.0L});
    add("Big", typeid(unsigned long long), [&](std::size_t n) {
        return Support::held(std::vector<unsigned long long>(n, 18'000'000'000'000'000'000U));
    });
    add("Normal", typeid(Geom::PhysicalSpace::vector), [&](std::size_t n) {
        return Support::held(std::vector<Geom::PhysicalSpace::vector>(n, {0.5, -1, 1e300}));
    });
    Sheaf::FileStatement statement;
    statement.step = {0.001, 0.01, 0.5};
    statement.offset = {7, -3, 0.25};
    grid->setStatement(std::move(statement));
}

TEST_F(LasVerificationTest, FilesOfCarriedGridsHoldWhatWasHandedOver) {
    for (const int version : {2, 3, 4}) {
        for (const bool conforming : {false, true}) {
            LasSettings settings = plain(version);
            settings.carry = true;
            settings.conforming = conforming;
            settings.uncompressed = conforming;
            EXPECT_EQ(check(buildCarried, settings).failure, "") << version << conforming;
            settings.carry = false;
            EXPECT_EQ(check(buildCarried, settings).failure, "") << version << conforming;
        }
    }
}

TEST_F(LasVerificationTest, EveryByteOfACarriedPointCounts) {
    LasSettings settings = plain();
    settings.carry = true;
    settings.conforming = true;
    const std::string whole = [&] {
        RecordedLas recorded(buildCarried, settings);
        return Support::readBytes(recorded.exporter().writtenFiles().at(0).path);
    }();
    const std::size_t begin = Support::number<std::uint32_t>(whole, 96);
    const std::size_t length = Support::number<std::uint16_t>(whole, 105);
    // The format's own bytes, Amplitude and Reflectance, and behind the 8 bytes of Big those of Height.
    constexpr std::size_t naturalSize = 38;
    std::vector<std::size_t> places{naturalSize + 12, naturalSize + 13};
    for (std::size_t place = 0; place < naturalSize + 4; ++place)
        places.push_back(place);
    for (const std::size_t place : places) {
        const auto outcome = check(buildCarried, settings, [&](std::string& bytes) {
            char& byte = bytes.at(begin + 5 * length + place);
            byte = static_cast<char>(byte ^ 0x55);
        });
        EXPECT_THAT(outcome.failure, HasSubstr("point 6")) << place;
    }
}

TEST_F(LasVerificationTest, WorkersFindWhatOneThreadFinds) {
    // Arrays that end early, so that the expected values depend on those of points long before.
    constexpr std::size_t count = 60'000;
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        std::mt19937 random(11);
        Points positions(count);
        for (auto& position : positions)
            position = {static_cast<double>(random() % 1000), 0, 1};
        GridBuilder(bundle, 0, "g")
            .field("Positions", "", positions)
            .field("Intensity", "", numbers<unsigned short>(count, random, 0, 65535))
            .field("ReturnNumber", "", numbers<unsigned char>(25'000, random, 1, 7))
            .field("UserData", "", numbers<unsigned char>(40'001, random, 0, 255))
            .field("Reflectance", "", std::vector<float>(30'000, 1.5F));
    };
    const auto intensityOf = [](std::string& bytes, std::size_t point) -> char& {
        return bytes.at(points + (point - 1) * recordLength + 12);
    };
    for (const unsigned workers : {1U, 2U, 3U, 16U}) {
        EXPECT_EQ(check(build, plain(), {}, 0, workers).failure, "") << workers;
        const auto outcome = check(
            build, plain(),
            [&](std::string& bytes) {
                intensityOf(bytes, 55'555) ^= 1;
                intensityOf(bytes, 20'001) ^= 1;
                intensityOf(bytes, 20'002) ^= 1;
            },
            0, workers);
        EXPECT_THAT(outcome.failure, HasSubstr("point 20001: Intensity")) << workers;
    }
}

TEST_F(LasVerificationTest, EachTileHoldsItsFragment) {
    LasSettings settings = plain();
    settings.tiles = true;
    for (std::size_t file = 0; file < 3; ++file) {
        const Outcome outcome = check(buildFull, settings, {}, file);
        EXPECT_EQ(outcome.failure, "");
        EXPECT_EQ(outcome.pointsOfPasses, pointsOfFragment[file]);
    }
}

TEST_F(LasVerificationTest, AnUnchangedFileHasNeitherFaultsNorNotes) {
    const Outcome outcome = check(buildSmall, plain());
    EXPECT_EQ(outcome.failure, "");
    EXPECT_THAT(outcome.notes, IsEmpty());
}

TEST_F(LasVerificationTest, AChangedAttributeIsFound) {
    const auto changed = [](std::size_t place) {
        return check(buildSmall, plain(),
                     [=](std::string& bytes) {
                         ASSERT_EQ(bytes.size(), points + 3 * recordLength);
                         bytes[points + recordLength + place] ^= 1;
                     })
            .failure;
    };
    // One step in x is within the tolerance of nothing; the other places are those of record format 6.
    EXPECT_EQ(changed(0), "out/a.las: check of the written file: point 2: x is 4.00025 in the file, 4 was "
                          "expected");
    EXPECT_THAT(changed(4), HasSubstr("point 2: y is "));
    EXPECT_THAT(changed(8), HasSubstr("point 2: z is "));
    EXPECT_THAT(changed(12), HasSubstr("point 2: Intensity is 21 in the file, 20 was expected"));
    EXPECT_THAT(changed(14), HasSubstr("point 2: ReturnNumber is 3 in the file, 2 was expected"));
    EXPECT_THAT(changed(16), HasSubstr("point 2: Classification is 1 in the file, 0 was expected"));
    EXPECT_THAT(changed(17), HasSubstr("point 2: UserData is 1"));
    EXPECT_THAT(changed(18), HasSubstr("point 2: ScanAngleRank is 1"));
    EXPECT_THAT(changed(20), HasSubstr("point 2: PointSourceID is 1"));
    EXPECT_THAT(changed(29), HasSubstr("point 2: GPSTime is "));
    EXPECT_THAT(changed(30), HasSubstr("point 2: Reflectance is "));
}

TEST_F(LasVerificationTest, ChangedFlagsAreFound) {
    const auto changed = [](unsigned bit) {
        return check(buildSmall, plain(),
                     [=](std::string& bytes) { bytes[points + 15] = static_cast<char>(1U << bit); })
            .failure;
    };
    EXPECT_THAT(changed(6), HasSubstr("point 1: ScanDirectionFlag is 1"));
    EXPECT_THAT(changed(7), HasSubstr("point 1: EdgeOfFlightLine is 1"));
}

TEST_F(LasVerificationTest, AWrongCountIsFound) {
    const auto outcome =
        check(buildSmall, plain(), [](std::string& bytes) { patch<std::uint64_t>(bytes, 247, 2); });
    EXPECT_EQ(outcome.failure,
              "out/a.las: check of the written file: the header states 2 points, 3 were written");
    LasSettings laz = plain(2);
    laz.uncompressed = false;
    EXPECT_THAT(
        check(buildSmall, laz, [](std::string& bytes) { patch<std::uint32_t>(bytes, 107, 4); }).failure,
        HasSubstr("the header states 4 points, 3 were written"));
}

TEST_F(LasVerificationTest, ADamagedChunkTableIsFoundWithoutDecoding) {
    LasSettings laz;
    RecordedLas recorded(buildFull, laz);
    const ConvLib::WrittenFile& written = recorded.exporter().writtenFiles().at(0);
    const LasVerification verification(recorded.settings());
    const LasVerification::File file{written.path, "a.laz", written.items};
    verification.checkCount(file);
    std::string bytes = Support::readBytes(written.path);
    // The position of the table stands before the first chunk.
    const auto begin = Support::number<std::uint32_t>(bytes, 96);
    const auto table = Support::number<std::uint64_t>(bytes, begin);
    patch<std::uint32_t>(bytes, table + 4, 1'000'000);
    Support::writeBytes(written.path, bytes);
    EXPECT_THROW(verification.checkCount(file), Anchor::FormatError);
    patch<std::uint64_t>(bytes, begin, bytes.size() + 5);
    Support::writeBytes(written.path, bytes);
    EXPECT_THROW(verification.checkCount(file), Anchor::FormatError);
}

TEST_F(LasVerificationTest, ADamagedChunkIsFoundByDecoding) {
    const auto outcome = check(buildFull, LasSettings{}, [](std::string& bytes) {
        for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 200; ++i)
            bytes[i] = static_cast<char>(~bytes[i]);
    });
    EXPECT_NE(outcome.failure, "");
}

TEST_F(LasVerificationTest, TheOtherKindOfFileIsFound) {
    EXPECT_THAT(
        check(buildSmall, plain(), [](std::string& bytes) { bytes[104] = static_cast<char>(0x86); }).failure,
        HasSubstr("it is compressed"));
}

TEST_F(LasVerificationTest, AnotherVersionIsFound) {
    RecordedLas recorded(buildSmall, plain(3));
    LasSettings expected = recorded.settings();
    expected.version = 4;
    const auto& written = recorded.exporter().writtenFiles().at(0);
    const LasVerification verification(expected);
    EXPECT_THROW((void)verification.compare({written.path, "a.las", 3}, recorded.grid().plan,
                                            recorded.grid().files.at(0)),
                 Anchor::FormatError);
}

TEST_F(LasVerificationTest, AFileThatGoesOnIsFound) {
    RecordedLas recorded(
        [](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder(bundle, 0, "g")
                .field("Positions", "a", Points{{1, 2, 3}})
                .field("Positions", "b", Points{{1, 2, 3}, {4, 5, 6}});
        },
        plain());
    const auto& written = recorded.exporter().writtenFiles().at(0);
    const LasVerification verification(recorded.settings());
    LasRecorder::File file = recorded.grid().files.at(0);
    const auto compare = [&] {
        try {
            (void)verification.compare({written.path, "a.las", 3}, recorded.grid().plan, file);
        } catch (const Anchor::FormatError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(compare(), "");
    file.fragments.pop_back();
    EXPECT_THAT(compare(), HasSubstr("it continues after 1 point"));
}

TEST_F(LasVerificationTest, AxesThatAreNotThoseAnnouncedAreFound) {
    const auto changed = [](std::size_t place, double value) {
        return check(buildSmall, plain(), [=](std::string& bytes) { patch<double>(bytes, place, value); })
            .failure;
    };
    EXPECT_EQ(changed(139, 0.0005),
              "out/a.las: check of the written file: the header states y in steps of 0.0005 "
              "from 3, it was to be in steps of 0.00025 from 3");
    EXPECT_THAT(changed(171, 4.00025), HasSubstr("the header states z in steps of 0.00025 from 4.00025"));
}

TEST_F(LasVerificationTest, AnExtentThatIsNotThatOfThePointsIsFound) {
    const auto withUpperX = [](double value) {
        return check(buildSmall, plain(), [=](std::string& bytes) { patch<double>(bytes, 179, value); })
            .failure;
    };
    EXPECT_EQ(withUpperX(4.0002), "");
    EXPECT_THAT(withUpperX(4.0003), AllOf(HasSubstr("the header states x from 1 to 4.0003"),
                                          HasSubstr("its points reach from 1 to 4")));
    EXPECT_THAT(withUpperX(3), HasSubstr("the header states x"));
}

TEST_F(LasVerificationTest, CountsByReturnAreReportedAndNoFault) {
    // The second fragment's missing field counts as first returns, while its points keep the number before.
    const auto outcome = check(
        [](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder(bundle, 0, "g")
                .field("Positions", "a", Points{{1, 2, 3}})
                .field("ReturnNumber", "a", std::vector<unsigned char>{2})
                .field("Positions", "b", Points{{1, 2, 3}, {4, 5, 6}});
        },
        plain());
    EXPECT_EQ(outcome.failure, "");
    EXPECT_THAT(outcome.notes, ::testing::ElementsAre("2 of return 1 in the header, 0 in the file",
                                                      "1 of return 2 in the header, 3 in the file"));
}

TEST_F(LasVerificationTest, AnInterruptionPassesThrough) {
    RecordedLas recorded(buildSmall, plain());
    const auto& written = recorded.exporter().writtenFiles().at(0);
    LasVerification verification(recorded.settings());
    struct Stop {};
    verification.beginPass = [](std::uint64_t) { throw Stop(); };
    EXPECT_THROW((void)verification.compare({written.path, "a.las", 3}, recorded.grid().plan,
                                            recorded.grid().files.at(0)),
                 Stop);
}

} // namespace
} // namespace Tidewatch
