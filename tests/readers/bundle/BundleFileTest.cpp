// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "readers/bundle/BundleFileReader.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "support/BundleBuilder.hpp"
#include "support/BundleText.hpp"
#include "support/Hdf5Craft.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/reading.hpp"
#include "support/systemReason.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

using Support::bundleText;
using Support::GridBuilder;
using Support::TemporaryFolder;
using ::testing::HasSubstr;
namespace Craft = Support::Craft;

using Bundle = Anchor::StrongPtr<Sheaf::Bundle>;

Bundle emptyBundle() {
    return Anchor::makeStrong<Sheaf::Bundle>();
}

Bundle read(const std::string& path, const ConvLib::ReadOptions& options = {},
            Tidewatch::Reading reading = Support::reading()) {
    const Bundle bundle = emptyBundle();
    Tidewatch::BundleFileReader(reading).read(*bundle, path, options);
    return bundle;
}

/// The message of the Anchor::Error that a call throws; fails the test when it throws none.
template <class Call>
std::string messageOf(Call&& call) {
    try {
        call();
    } catch (const Anchor::Error& error) {
        return error.what();
    }
    ADD_FAILURE() << "no error";
    return {};
}

/// An element whose bytes come from a generator; long doubles get values, since not all bytes are one.
template <class T>
T randomElement(std::mt19937_64& random) {
    if constexpr (std::is_same_v<T, long double>) {
        return std::ldexp(static_cast<long double>(random()), static_cast<int>(random() % 8000) - 4000);
    } else {
        T element;
        unsigned char bytes[sizeof(T)];
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random());
        std::memcpy(&element, bytes, sizeof(T));
        return element;
    }
}

template <class T>
Anchor::StrongPtr<Sheaf::CreativeArrayBase> randomArray(const Sheaf::Extents& extents,
                                                        std::mt19937_64& random) {
    std::vector<T> elements(*extents.elementCount());
    for (T& element : elements)
        element = randomElement<T>(random);
    return Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(extents, std::move(elements)));
}

Anchor::StrongPtr<Sheaf::CreativeArrayBase> lattice(Sheaf::MultiIndex<3> extents) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{430000.5, -5920000.25, 0.1}, Geom::PhysicalSpace::vector{0.5, 0.25, 1.0},
        extents));
}

template <class T>
std::vector<T> ramp(std::size_t count) {
    std::vector<T> values(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = static_cast<T>(i);
    return values;
}

std::vector<Geom::PhysicalSpace::point> somePoints(std::size_t count) {
    std::vector<Geom::PhysicalSpace::point> points(count);
    for (std::size_t i = 0; i < count; ++i)
        points[i] = {430000.0 + 0.001 * static_cast<double>(i), 5920000.0, -static_cast<double>(i % 100)};
    return points;
}

/// The only array of the only grid of a bundle's first slice, by field and fragment.
Sheaf::Field::Creator creatorOf(const Bundle& bundle, const std::string& field, const std::string& fragment) {
    const auto grid = bundle->slices().begin()->second.lock()->grids().begin()->second.lock();
    const auto found =
        grid->getField(grid->findCartesianChart(""), field, grid->skeletons().findVertices(-1));
    return found->getCreator(fragment.empty() ? nullptr : Anchor::makeStrong<Sheaf::FragmentID>(fragment));
}

std::string textOf(const Sheaf::Field::Creator& creator) {
    return Support::arrayText(*Anchor::dynamicCast<Sheaf::MemBase>(creator->create(false)));
}

class BundleFile : public ::testing::Test {
protected:
    /// Writes a bundle and reads it back.
    Bundle roundTrip(const Bundle& bundle) {
        Tidewatch::writeBundleFile(*bundle, file_);
        return read(file_);
    }
    void expectRoundTrip(const Bundle& bundle) {
        const std::string before = bundleText(*bundle);
        EXPECT_FALSE(before.empty());
        EXPECT_EQ(bundleText(*roundTrip(bundle)), before);
    }

    TemporaryFolder folder_;
    std::string file_ = folder_ / "bundle.h5";
};

TEST_F(BundleFile, EveryElementTypeInEveryRankRoundTripsWithEqualValues) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 1.5, "all");
    std::mt19937_64 random(1);
    const std::vector<Sheaf::Extents> shapes{{7}, {5, 3}, {4, 3, 2}, {2, 3, 1, 4}};
    std::size_t types = 0;
    Sheaf::ElementTypes::visitFirst(
        [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (const Sheaf::Extents& shape : shapes)
                grid.field("F" + std::string(Sheaf::ElementTraits<T>::name) + std::to_string(shape.rank()),
                           "f", randomArray<T>(shape, random));
            ++types;
            return false;
        },
        [](auto) {});
    EXPECT_EQ(types, 17u);
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, LimitsOfEveryNumberTypeRoundTrip) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "limits");
    Sheaf::ElementTypes::visitFirst(
        [&](auto tag) {
            using T = typename decltype(tag)::type;
            if constexpr (std::is_arithmetic_v<T>) {
                using Limits = std::numeric_limits<T>;
                grid.field(std::string(Sheaf::ElementTraits<T>::name), "f",
                           std::vector<T>{Limits::lowest(), Limits::min(), Limits::max(), T(0), T(1),
                                          Limits::denorm_min(), Limits::infinity(), Limits::quiet_NaN()});
            }
            return false;
        },
        [](auto) {});
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, LargeArraysOfSeveralChunksRoundTripCompressedAndPlain) {
    for (const unsigned compression : {0u, 1u, 9u}) {
        const Bundle bundle = emptyBundle();
        std::mt19937_64 random(2);
        GridBuilder grid(*bundle, 0, "large");
        grid.field("Positions", "a", somePoints(60'000));
        grid.field("Flat", "a", randomArray<unsigned short>({700, 900}, random));
        // Rows longer than a chunk, and a chunk that is cut in three axes.
        grid.field("Long", "a", randomArray<unsigned char>({600'000, 2}, random));
        grid.field("Deep", "a", randomArray<float>({37, 41, 50, 3}, random));
        grid.field("Color", "a", randomArray<Sheaf::Element::Color>({333, 777}, random));
        grid.field("Wide", "a", randomArray<long double>({50'000}, random));
        Tidewatch::writeBundleFile(*bundle, file_, {{}, compression});
        EXPECT_EQ(bundleText(*read(file_)), bundleText(*bundle)) << compression;
    }
}

TEST_F(BundleFile, CompressibleArrayTakesLessThanItsSize) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("Ramp", "a", ramp<int>(100'000));
    Tidewatch::writeBundleFile(*bundle, file_);
    EXPECT_LT(std::filesystem::file_size(file_), 200'000u);
}

TEST_F(BundleFile, UniformPositionsRoundTripWithAndWithoutFragments) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "tiles")
        .field("Positions", "a", lattice({4, 3, 1}))
        .field("Positions", "b", lattice({0, 3, 1}));
    GridBuilder(*bundle, 0, "whole")
        .field("Positions", "", lattice({200, 300, 7}))
        .field("Height", "", ramp<float>(3));
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, UniformPositionsThatNoReaderTakesAreNotWritten) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const Geom::PhysicalSpace::point origin{1, 2, 3};
    const Geom::PhysicalSpace::vector spacing{1, 1, 1};
    for (const auto& [from, step] : {std::pair{origin, Geom::PhysicalSpace::vector{0, 1, 1}},
                                     {origin, {1, -1, 1}},
                                     {origin, {1, 1, std::nan("")}},
                                     {origin, {infinity, 1, 1}},
                                     {{1, -infinity, 3}, spacing}}) {
        const Bundle bundle = emptyBundle();
        GridBuilder(*bundle, 0, "g")
            .field("Positions", "",
                   Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                       from, step, Sheaf::MultiIndex<3>{2, 3, 1})));
        EXPECT_THROW(Tidewatch::writeBundleFile(*bundle, file_), Anchor::ModelError);
    }
}

TEST_F(BundleFile, FieldsWithFragmentsAndWithoutRoundTrip) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "cut")
        .field("Positions", "000000", somePoints(3))
        .field("Positions", "000001", somePoints(2))
        .field("Intensity", "000001", std::vector<unsigned short>{1, 65535})
        .field("Intensity", "elsewhere", std::vector<unsigned short>{3});
    GridBuilder(*bundle, 0, "whole").field("Positions", "", somePoints(4)).field("Label", "", ramp<int>(2));
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, OverlapsOfFragmentsRoundTrip) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "both", lattice({4, 4, 1})).field("Positions", "low", lattice({4, 4, 1}));
    grid.field("Positions", "none", lattice({4, 4, 1}));
    grid.grid().makeFragment("both")->overlapLow = {1, 2, 0};
    grid.grid().makeFragment("both")->overlapHigh = {std::numeric_limits<std::uint64_t>::max(), 0, 3};
    grid.grid().makeFragment("low")->overlapLow = {0, 0, 0};
    grid.grid().makeFragment("high, without data")->overlapHigh = {5, 6, 7};
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, FragmentThatOnlyItsFieldKnowsKeepsItsOverlap) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    const auto fragment = Anchor::makeStrong<Sheaf::FragmentID>("own");
    fragment->overlapLow = {1, 1, 0};
    grid.representation()
        ->makeField("Height", typeid(float))
        ->addFragment(fragment, Support::held(ramp<float>(2)));
    const auto fragments =
        roundTrip(bundle)->slices().begin()->second.lock()->grids().at("g").lock()->fragments();
    EXPECT_EQ(fragments.at("own")->overlapLow, (Sheaf::MultiIndex<3>{1, 1, 0}));
}

TEST_F(BundleFile, SeveralSlicesAndGridsRoundTrip) {
    const Bundle bundle = emptyBundle();
    for (const double time : {-1e300, -0.5, 0.0, 5e-324, 1e9}) {
        for (const char* const name : {"a", "b", "Z"})
            GridBuilder(*bundle, time, name).field("Positions", "0", somePoints(2));
    }
    bundle->makeSlice(77.0); // a slice without any grid
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, SkeletonsWithDimensionsRefinementsAndExclusionMarksRoundTrip) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g", {}, 0)
        .field("Positions", "", somePoints(1))
        .skeleton({0, 0, 0}, 7)
        .field("Positions", "", somePoints(2))
        .skeleton({1, 2, -2147483647 - 1}, -2147483647 - 1)
        .field("Positions", "", somePoints(3))
        .skeleton({1}, 0, 2)
        .field("Area", "", ramp<double>(3))
        .skeleton({1}, 0, -1);
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, SeveralChartsDeclaredAndUsedRoundTrip) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "", somePoints(1)).chart("Other").field("Positions", "", somePoints(2));
    grid.grid().declareCartesianChart("Declared only");
    // Made by an exporter, not in use: no candidate for the default chart, and not stored.
    grid.grid().makeCartesianChart("Made only", 0);
    expectRoundTrip(bundle);
    EXPECT_EQ(
        read(file_)->slices().begin()->second.lock()->grids().at("g").lock()->findCartesianChart("Made only"),
        nullptr);
}

TEST_F(BundleFile, EmptyArraysAndFieldsWithoutDataRoundTrip) {
    const Bundle bundle = emptyBundle();
    std::mt19937_64 random(3);
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "a", somePoints(0));
    grid.field("Empty", "a", randomArray<int>({0, 5}, random))
        .field("Empty", "b", randomArray<int>({5, 0, 2}, random));
    grid.field("Whole", "", std::vector<double>());
    grid.representation()->makeField("Nothing", typeid(Geom::PhysicalSpace::vector));
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, EmptyBundleRoundTrips) {
    EXPECT_EQ(bundleText(*roundTrip(emptyBundle())), "");
}

TEST_F(BundleFile, NamesBeyondAsciiRoundTrip) {
    const Bundle bundle = emptyBundle();
    const std::string latin1 = "K\xfcste"; // no UTF-8 at all
    GridBuilder(*bundle, 0, "Küste – 海岸")
        .chart("карта")
        .field("Höhe", "Σ1", ramp<float>(2))
        .field(latin1, "tile with spaces: *?\"", ramp<float>(2))
        .field("a.b", " ", ramp<int>(1));
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, FileNameBeyondAsciiIsWrittenAndRead) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("Positions", "", somePoints(2));
    file_ = folder_ / "Küste 海岸.h5";
    expectRoundTrip(bundle);
}

TEST_F(BundleFile, WrittenTwiceGivesTheSameBytes) {
    const auto make = [] {
        const Bundle bundle = emptyBundle();
        std::mt19937_64 random(4);
        GridBuilder(*bundle, 3, "g")
            .field("Positions", "a", somePoints(5000))
            .field("Wide", "a", randomArray<long double>({3000}, random))
            .field("Narrow", "a", randomArray<long double>({3}, random));
        return bundle;
    };
    Tidewatch::writeBundleFile(*make(), file_);
    const std::string first = Support::readBytes(file_);
    ::sleep(1); // the library's own times have seconds
    Tidewatch::writeBundleFile(*make(), file_);
    EXPECT_TRUE(Support::readBytes(file_) == first);
}

TEST_F(BundleFile, WrittenAgainFromWhatWasReadGivesTheSameBytes) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 3, "g").field("Positions", "a", somePoints(5000)).field("Label", "a", ramp<int>(9));
    const std::string copy = folder_ / "copy.h5";
    Tidewatch::writeBundleFile(*roundTrip(bundle), copy);
    EXPECT_TRUE(Support::readBytes(copy) == Support::readBytes(file_));
}

TEST_F(BundleFile, FieldsAreWrittenFragmentAfterFragmentSinceReadersMayMakeThemTogether) {
    class Noting final : public Sheaf::CreativeArrayBase {
    public:
        Noting(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
            log_.push_back(name_);
            return Sheaf::makeArray(std::vector<int>{static_cast<int>(log_.size())});
        }
        [[nodiscard]] const std::type_info& elementType() const noexcept override { return typeid(int); }
        [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return Sheaf::Extents{1}; }
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return {}; }

    private:
        std::string name_;
        std::vector<std::string>& log_;
    };
    std::vector<std::string> log;
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    for (const std::string name : {"A", "B", "C"}) {
        for (const std::string fragment : {"1", "2", "3"}) {
            // One field lacks a fragment.
            if (name + fragment != "B2")
                grid.field(name, fragment, Anchor::makeStrong<Noting>(name + fragment, log));
        }
    }
    Tidewatch::writeBundleFile(*bundle, file_);
    EXPECT_THAT(log, ::testing::ElementsAre("A1", "B1", "C1", "A2", "C2", "A3", "B3", "C3"));
    const auto array =
        Anchor::dynamicCast<Sheaf::TypedArray<int>>(creatorOf(read(file_), "C", "2")->create(false));
    EXPECT_THAT(array->base_vector(), ::testing::ElementsAre(5));
}

TEST_F(BundleFile, StructureIsReadNoArrayIsMadeUntilItIsAskedFor) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", somePoints(1000))
        .field("Positions", "b", somePoints(500));
    const Bundle copy = roundTrip(bundle);
    const auto a = creatorOf(copy, "Positions", "a");
    const auto b = creatorOf(copy, "Positions", "b");
    EXPECT_EQ(a->extents(), Sheaf::Extents{1000});
    EXPECT_EQ(a->elementType(), typeid(Geom::PhysicalSpace::point));
    EXPECT_EQ(a->available(), nullptr);
    const auto array = a->create(false);
    EXPECT_EQ(a->available(), array);
    EXPECT_EQ(b->available(), nullptr);
    EXPECT_EQ(a->create(false), array);
    EXPECT_NE(a->create(true), array);
}

TEST_F(BundleFile, CacheLimitBelowTheBundleDropsArraysAndMakesThemAgain) {
    Anchor::Cache& cache = Anchor::Cache::MemCache();
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    for (int i = 0; i < 20; ++i)
        grid.field("Positions", "f" + std::to_string(100 + i),
                   somePoints(static_cast<std::size_t>(1000 + i)));
    const Bundle copy = roundTrip(bundle);
    const std::uint64_t oneArray = 1020 * sizeof(Geom::PhysicalSpace::point);
    const std::uint64_t before = cache.limit();
    cache.setLimit(3 * oneArray);
    EXPECT_EQ(bundleText(*copy), bundleText(*bundle));
    EXPECT_LE(cache.bytesInUse(), 3 * oneArray);
    EXPECT_GT(cache.bytesInUse(), 0u);
    EXPECT_EQ(bundleText(*copy), bundleText(*bundle));
    cache.setLimit(before);
}

TEST_F(BundleFile, BundleThatHasBeenLetGoFreesItsArraysAndItsFile) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("Positions", "a", somePoints(1000));
    const std::uint64_t before = Anchor::Cache::MemCache().bytesInUse();
    {
        const Bundle copy = roundTrip(bundle);
        textOf(creatorOf(copy, "Positions", "a"));
        EXPECT_GT(Anchor::Cache::MemCache().bytesInUse(), before);
        EXPECT_THAT(messageOf([&] { Tidewatch::writeBundleFile(*bundle, file_); }), HasSubstr("bundle.h5"));
    }
    EXPECT_EQ(Anchor::Cache::MemCache().bytesInUse(), before);
    EXPECT_NO_THROW(Tidewatch::writeBundleFile(*bundle, file_));
}

TEST_F(BundleFile, FileThatIsStillBeingReadIsNotOverwritten) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("Positions", "a", somePoints(1000));
    const Bundle copy = roundTrip(bundle);
    EXPECT_THROW(Tidewatch::writeBundleFile(*copy, file_), Anchor::FileError);
    EXPECT_EQ(bundleText(*copy), bundleText(*bundle));
}

TEST_F(BundleFile, TwoThreadsAskForArraysBothGetThem) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    for (int i = 0; i < 8; ++i)
        grid.field("Positions", "f" + std::to_string(i), somePoints(static_cast<std::size_t>(20'000 + i)));
    const Bundle copy = roundTrip(bundle);
    const std::string expected = bundleText(*bundle);
    std::vector<std::string> texts(2);
    {
        std::thread first([&] { texts[0] = bundleText(*copy); });
        std::thread second([&] { texts[1] = bundleText(*copy); });
        first.join();
        second.join();
    }
    EXPECT_EQ(texts[0], expected);
    EXPECT_EQ(texts[1], expected);
}

TEST_F(BundleFile, TickThatThrowsWhileAnArrayIsReadStopsAndLeavesTheArrayToBeReadLater) {
    const Bundle bundle = emptyBundle();
    std::mt19937_64 random(5);
    GridBuilder(*bundle, 0, "g").field("Noise", "a", randomArray<double>({4'000'000}, random));
    for (const unsigned compression : {0u, 1u}) {
        Tidewatch::writeBundleFile(*bundle, file_, {{}, compression});
        struct Stop {};
        std::vector<double> shares;
        bool stops = false;
        ConvLib::ReadOptions options;
        options.Tick = [&](const std::string& path, double share) {
            EXPECT_EQ(path, file_);
            shares.push_back(share);
            if (stops && share > 0.3)
                throw Stop();
        };
        const Bundle copy = read(file_, options);
        stops = true;
        shares.clear();
        EXPECT_THROW(static_cast<void>(creatorOf(copy, "Noise", "a")->create(false)), Stop);
        ASSERT_FALSE(shares.empty());
        EXPECT_GT(shares.back(), 0.3);
        EXPECT_LT(shares.back(), 0.7);
        stops = false;
        shares.clear();
        EXPECT_TRUE(textOf(creatorOf(copy, "Noise", "a")) == textOf(creatorOf(bundle, "Noise", "a")));
        EXPECT_GT(shares.size(), 4u);
        EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
        EXPECT_EQ(shares.back(), 1.0);
    }
}

TEST_F(BundleFile, TickThatThrowsWhileTheStructureIsReadLeavesTheBundleAsItWas) {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    for (int i = 0; i < 200; ++i)
        grid.field("Positions", std::to_string(i), somePoints(1));
    Tidewatch::writeBundleFile(*bundle, file_);
    struct Stop {};
    ConvLib::ReadOptions options;
    options.Tick = [](const std::string&, double) { throw Stop(); };
    const Bundle target = emptyBundle();
    EXPECT_THROW(Tidewatch::BundleFileReader(Support::reading()).read(*target, file_, options), Stop);
    EXPECT_EQ(bundleText(*target), "");
}

TEST_F(BundleFile, ProgressOfWritingCountsTheArraysAndMayStop) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", somePoints(10))
        .field("Positions", "b", somePoints(10));
    GridBuilder(*bundle, 1, "g").field("Positions", "", somePoints(10));
    std::vector<std::uint64_t> seen;
    Tidewatch::writeBundleFile(*bundle, file_,
                               {[&](std::uint64_t done, std::uint64_t total) {
                                    EXPECT_EQ(total, 3u);
                                    seen.push_back(done);
                                },
                                4});
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{0, 1, 2}));
    struct Stop {};
    EXPECT_THROW(Tidewatch::writeBundleFile(*bundle, file_,
                                            {[](std::uint64_t done, std::uint64_t) {
                                                 if (done == 1)
                                                     throw Stop();
                                             },
                                             4}),
                 Stop);
    EXPECT_NO_THROW(Tidewatch::writeBundleFile(*bundle, file_)); // the stopped one is no longer open
    EXPECT_EQ(bundleText(*read(file_)), bundleText(*bundle));
}

TEST_F(BundleFile, InputsThatShareATimeShareTheSlice) {
    const Bundle a = emptyBundle();
    GridBuilder(*a, 2, "a").field("Positions", "", somePoints(1));
    const Bundle b = emptyBundle();
    GridBuilder(*b, 2, "b").field("Positions", "", somePoints(2));
    const std::string other = folder_ / "other.h5";
    Tidewatch::writeBundleFile(*a, file_);
    Tidewatch::writeBundleFile(*b, other);
    const Bundle both = read(file_);
    Tidewatch::BundleFileReader(Support::reading()).read(*both, other, {});
    ASSERT_EQ(both->slices().size(), 1u);
    EXPECT_EQ(both->slices().begin()->second.lock()->grids().size(), 2u);
}

TEST_F(BundleFile, TwoGridsOfOneNameInOneSliceIsAnErrorThatNamesBothFilesAndTakesTheSecondOut) {
    const Bundle a = emptyBundle();
    GridBuilder(*a, 2, "same").field("Positions", "", somePoints(1));
    const Bundle b = emptyBundle();
    GridBuilder(*b, 1, "early").field("Positions", "", somePoints(2));
    GridBuilder(*b, 2, "before").field("Positions", "", somePoints(2));
    GridBuilder(*b, 2, "same").field("Positions", "", somePoints(3));
    const std::string other = folder_ / "other.h5";
    Tidewatch::writeBundleFile(*a, file_);
    Tidewatch::writeBundleFile(*b, other);
    const Bundle both = read(file_);
    const std::string message =
        messageOf([&] { Tidewatch::BundleFileReader(Support::reading()).read(*both, other, {}); });
    EXPECT_THAT(message, HasSubstr(file_));
    EXPECT_THAT(message, HasSubstr(other));
    EXPECT_EQ(bundleText(*both), bundleText(*a));
}

TEST_F(BundleFile, ReportNamesTheFileAndItsKind) {
    Tidewatch::writeBundleFile(*emptyBundle(), file_);
    const Bundle bundle = emptyBundle();
    const auto report = Tidewatch::BundleFileReader(Support::reading()).read(*bundle, file_, {});
    EXPECT_EQ(report->file(), file_);
    EXPECT_EQ(report->kind(), "bundle file");
    EXPECT_EQ(report->grid(), "");
    EXPECT_TRUE(report->notCarried().empty());
    EXPECT_FALSE(report->coordinateStep());
}

TEST_F(BundleFile, ReaderRecognisesTheSignatureOfHdf5Only) {
    Tidewatch::writeBundleFile(*emptyBundle(), file_);
    const std::string bytes = Support::readBytes(file_);
    const Tidewatch::BundleFileReader reader;
    const auto recognises = [&](std::string_view head) {
        return reader.recognises("x.h5", std::as_bytes(std::span(head.data(), head.size())));
    };
    EXPECT_TRUE(recognises(bytes));
    EXPECT_TRUE(recognises(std::string_view(bytes).substr(0, 8)));
    EXPECT_FALSE(recognises(std::string_view(bytes).substr(0, 7)));
    EXPECT_FALSE(recognises("LASF\x01\x02"));
    EXPECT_FALSE(recognises(""));
}

// What the library is set to belongs to the host.

TEST_F(BundleFile, ErrorPrintingOfTheHostIsAsItWasAfterwards) {
    const H5E_auto2_t mine = [](hid_t, void*) -> herr_t { return 0; };
    int data = 0;
    H5E_auto2_t before = nullptr;
    void* dataBefore = nullptr;
    ASSERT_GE(H5Eget_auto2(H5E_DEFAULT, &before, &dataBefore), 0);
    ASSERT_GE(H5Eset_auto2(H5E_DEFAULT, mine, &data), 0);
    EXPECT_THROW(read("/nowhere/at/all.h5"), Anchor::FileError);
    H5E_auto2_t after = nullptr;
    void* dataAfter = nullptr;
    ASSERT_GE(H5Eget_auto2(H5E_DEFAULT, &after, &dataAfter), 0);
    EXPECT_EQ(after, mine);
    EXPECT_EQ(dataAfter, &data);
    H5Eset_auto2(H5E_DEFAULT, before, dataBefore);
}

TEST_F(BundleFile, OldErrorPrintingOfTheHostIsAsItWasAfterwards) {
    const H5E_auto1_t mine = [](void*) -> herr_t { return 0; };
    H5E_auto2_t before = nullptr;
    void* dataBefore = nullptr;
    ASSERT_GE(H5Eget_auto2(H5E_DEFAULT, &before, &dataBefore), 0);
    ASSERT_GE(H5Eset_auto1(mine, nullptr), 0);
    EXPECT_THROW(read("/nowhere/at/all.h5"), Anchor::FileError);
    H5E_auto1_t after = nullptr;
    void* dataAfter = nullptr;
    ASSERT_GE(H5Eget_auto1(&after, &dataAfter), 0);
    EXPECT_EQ(after, mine);
    H5Eset_auto2(H5E_DEFAULT, before, dataBefore);
}

TEST_F(BundleFile, FailureOfTheLibraryPrintsNothing) {
    Support::writeBytes(file_, "\x89HDF\r\n\x1a\nand then nothing of the kind");
    ::testing::internal::CaptureStderr();
    ::testing::internal::CaptureStdout();
    EXPECT_THROW(read(file_), Anchor::FormatError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

// What the writer cannot write.

TEST_F(BundleFile, PathThatCannotBeWrittenIsAFileErrorWithPathAndCause) {
    const std::string message =
        messageOf([&] { Tidewatch::writeBundleFile(*emptyBundle(), folder_ / "no/such/folder.h5"); });
    EXPECT_THAT(message, HasSubstr("no/such/folder.h5"));
    EXPECT_THAT(message, HasSubstr(Support::systemReason(ENOENT)));
    EXPECT_THAT(messageOf([&] { Tidewatch::writeBundleFile(*emptyBundle(), folder_.path().string()); }),
                HasSubstr(Support::systemReason(EISDIR)));
}

TEST_F(BundleFile, PathThatCannotBeReadIsAFileErrorWithPathAndCause) {
    const std::string message = messageOf([&] { read(folder_ / "missing.h5"); });
    EXPECT_THAT(message, HasSubstr("missing.h5"));
    EXPECT_THAT(message, HasSubstr(Support::systemReason(ENOENT)));
    EXPECT_THROW(read(folder_.path().string()), Anchor::FileError);
    EXPECT_THROW(read("/dev/null"), Anchor::FileError);
}

TEST_F(BundleFile, NamesThatAreUnfitAreNotWritten) {
    for (const std::string name : {"", ".", "..", "a/b", "a\\b", "a\nb", "a\x7f"}) {
        const auto expectRefused = [&](const Bundle& bundle) {
            EXPECT_THROW(Tidewatch::writeBundleFile(*bundle, file_), Anchor::ModelError) << name;
        };
        Bundle bundle = emptyBundle();
        GridBuilder(*bundle, 0, name);
        expectRefused(bundle);
        bundle = emptyBundle();
        GridBuilder(*bundle, 0, "g").chart(name);
        expectRefused(bundle);
        bundle = emptyBundle();
        GridBuilder(*bundle, 0, "g").field(name, "", ramp<int>(1));
        expectRefused(bundle);
        bundle = emptyBundle();
        GridBuilder(*bundle, 0, "g").grid().makeFragment(name);
        expectRefused(bundle);
    }
}

TEST_F(BundleFile, FieldThatTheFormatCannotHoldIsNotWritten) {
    Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("F", "", ramp<int>(1)).field("F", "a", ramp<int>(1));
    EXPECT_THAT(messageOf([&] { Tidewatch::writeBundleFile(*bundle, file_); }),
                HasSubstr("both with and without fragments"));

    bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("F", "a", ramp<int>(1)).field("F", "b", ramp<float>(1));
    EXPECT_THAT(messageOf([&] { Tidewatch::writeBundleFile(*bundle, file_); }),
                HasSubstr("F/b: the array's element type is not that of its field"));

    bundle = emptyBundle();
    GridBuilder grid(*bundle, 0, "g");
    grid.grid().skeletons().make({1, {}})->representations().make(grid.currentSkeleton());
    EXPECT_THAT(messageOf([&] { Tidewatch::writeBundleFile(*bundle, file_); }),
                HasSubstr("not in a Cartesian chart"));
}

TEST_F(BundleFile, CreatorThatThrowsPassesThroughTheWriter) {
    class Broken final : public Sheaf::CreativeArrayBase {
    public:
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
            throw Anchor::FormatError("broken");
        }
        [[nodiscard]] const std::type_info& elementType() const noexcept override { return typeid(int); }
        [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return {}; }
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return {}; }
    };
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("F", "", Anchor::makeStrong<Broken>());
    EXPECT_THROW(Tidewatch::writeBundleFile(*bundle, file_), Anchor::FormatError);
}

/// Runs a function in a process of its own and gives the status that it ends with.
template <class Call>
int inChild(Call&& call) {
    const pid_t child = ::fork();
    if (child == 0)
        std::exit(call()); // with everything that happens at the end of a process
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST_F(BundleFile, DiskThatIsFullIsAFileErrorWhereverItStrikesAndTheProcessGoesOn) {
    const Bundle bundle = emptyBundle();
    std::mt19937_64 random(6);
    GridBuilder grid(*bundle, 0, "g");
    for (int i = 0; i < 30; ++i)
        grid.field("Noise" + std::to_string(i), "a", randomArray<double>({20'000}, random))
            .field("Small" + std::to_string(i), "a", ramp<int>(100));
    Tidewatch::writeBundleFile(*bundle, file_);
    const std::string other = folder_ / "other.h5";
    std::filesystem::copy_file(file_, other);
    const auto whole = static_cast<rlim_t>(std::filesystem::file_size(file_));
    ASSERT_GT(whole, 4'000'000u);
    for (const rlim_t room : {rlim_t{0}, rlim_t{10}, rlim_t{1000}, rlim_t{20'000}, whole / 3, whole / 2,
                              whole - 100'000, whole - 1000, whole - 1}) {
        const int status = inChild([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{room, room};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            std::string message;
            try {
                Tidewatch::writeBundleFile(*bundle, file_);
                return 1;
            } catch (const Anchor::FileError& error) {
                message = error.what();
            }
            if (message.find(file_ + ": cannot write: " + Support::systemReason(EFBIG)) == std::string::npos)
                return 2;
            // The library still works.
            return bundleText(*read(other, {}, Tidewatch::Reading::InProcess)).empty() ? 3 : 0;
        });
        EXPECT_EQ(status, 0) << room << " of " << whole;
    }
}

TEST_F(BundleFile, BundleHeldByAStaticObjectEndsItsProcessQuietly) {
    const Bundle bundle = emptyBundle();
    GridBuilder(*bundle, 0, "g").field("Positions", "a", somePoints(10));
    Tidewatch::writeBundleFile(*bundle, file_);
    EXPECT_EQ(inChild([&] {
                  // Made before the library is used in this process, so it dies after the library's own end.
                  static Bundle forEver;
                  forEver = read(file_);
                  return textOf(creatorOf(forEver, "Positions", "a")).empty() ? 1 : 0;
              }),
              0);
}

// What other programs write.

TEST_F(BundleFile, TextsOfVariableLengthAreRead) {
    Craft::File(file_)
        .longText("/", "format", "tidewatch-bundle")
        .number("/", "version", 1)
        .grid()
        .group(Craft::fields + "Normals")
        .longText(Craft::fields + "Normals", "element", "bivector3f");
    EXPECT_THAT(bundleText(*read(file_)), HasSubstr("field Normals bivector3f\n"));
}

TEST_F(BundleFile, GroupsThatAreOptionalMayBeMissing) {
    Craft::File(file_)
        .bundle()
        .group("/slices/a/grids/g")
        .number("/slices/a", "time", 1)
        .group("/slices/b")
        .number("/slices/b", "time", 2.5);
    const Bundle bundle = read(file_);
    ASSERT_EQ(bundle->slices().size(), 2u);
    EXPECT_TRUE(bundle->slices().at(1.0).lock()->accessSlice());
    EXPECT_FALSE(bundle->slices().at(2.5).lock()->accessSlice());
}

TEST_F(BundleFile, EmptyRefinementListOfAnyTypeIsNoRefinement) {
    const double unused = 0;
    const std::vector<hsize_t> none{0};
    Craft::File(file_).bundle().grid().attribute("/slices/t/grids/g/skeletons/s", "refinement",
                                                 H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, none, &unused);
    EXPECT_THAT(bundleText(*read(file_)), HasSubstr("skeleton 0 () 0"));
}

TEST_F(BundleFile, ElementTypeNotStatedIsTheDatasetsOwnAndPointForPositions) {
    const std::vector<double> numbers = ramp<double>(6);
    Craft::File(file_)
        .bundle()
        .grid()
        .dataset(Craft::fields + "Positions/a", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {2, 3}, numbers.data())
        .dataset(Craft::fields + "Small/a", H5T_STD_I16BE, H5T_NATIVE_DOUBLE, {2, 3}, numbers.data())
        .dataset(Craft::fields + "Whole", H5T_STD_U64LE, H5T_NATIVE_DOUBLE, {6}, numbers.data())
        .group(Craft::fields + "Nothing");
    const std::string text = bundleText(*read(file_));
    EXPECT_THAT(text, HasSubstr("field Positions point\n     a: point (2 ) "));
    EXPECT_THAT(text, HasSubstr("field Small int16\n     a: int16 (3 2 ) 0 1 2 3 4 5 "));
    EXPECT_THAT(text, HasSubstr("field Whole uint64\n     (whole): uint64 (6 ) 0 1 2 3 4 5 "));
    EXPECT_THAT(text, HasSubstr("field Nothing float64\n"));
}

TEST_F(BundleFile, NumbersOfAWiderTypeAreReadAsTheElementType) {
    const std::vector<double> numbers{0, 1, 200, 255};
    Craft::File file(file_);
    file.bundle().grid();
    const std::vector<hid_t> types{H5T_STD_U8LE,   H5T_STD_I16LE,     H5T_STD_U16BE, H5T_STD_I32BE,
                                   H5T_STD_U32LE,  H5T_STD_I64LE,     H5T_STD_U64BE, H5T_IEEE_F32BE,
                                   H5T_IEEE_F64LE, H5T_NATIVE_LDOUBLE};
    for (std::size_t i = 0; i < types.size(); ++i) {
        for (const bool isChunked : {false, true}) {
            Craft::Properties properties;
            if (isChunked)
                properties.chunk({3}).filters(true, 6, false);
            const std::string name = Craft::fields + "F" + std::to_string(i) + (isChunked ? "c" : "p");
            file.dataset(name, types[i], H5T_NATIVE_DOUBLE, {4}, numbers.data(), properties.id())
                .text(name, "element", "uint8");
        }
    }
    file.close();
    const Bundle bundle = read(file_);
    for (std::size_t i = 0; i < types.size(); ++i) {
        EXPECT_EQ(textOf(creatorOf(bundle, "F" + std::to_string(i) + "c", "")), "uint8 (4 ) 0 1 200 255 ");
        EXPECT_EQ(textOf(creatorOf(bundle, "F" + std::to_string(i) + "p", "")), "uint8 (4 ) 0 1 200 255 ");
    }
}

TEST_F(BundleFile, DoublesReadAsFloatsAreRoundedAndKeepInfinities) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> numbers{0.1, -infinity, infinity, std::nan(""), 3.4028234663852886e38, 1e-60};
    Craft::File(file_)
        .bundle()
        .grid()
        .dataset(Craft::fields + "F", H5T_IEEE_F64BE, H5T_NATIVE_DOUBLE, {6}, numbers.data())
        .text(Craft::fields + "F", "element", "float32");
    const auto array =
        Anchor::dynamicCast<Sheaf::TypedArray<float>>(creatorOf(read(file_), "F", "")->create(false));
    ASSERT_NE(array, nullptr);
    const std::vector<float>& values = array->base_vector();
    EXPECT_EQ(values[0], 0.1f);
    EXPECT_EQ(values[1], -std::numeric_limits<float>::infinity());
    EXPECT_EQ(values[2], std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(values[3]));
    EXPECT_EQ(values[4], std::numeric_limits<float>::max());
    EXPECT_EQ(values[5], 0.0f);
}

TEST_F(BundleFile, EveryStorageLayoutAndFilterOfOursGivesTheSameValues) {
    const std::vector<int> numbers = ramp<int>(24 * 35);
    Craft::File file(file_);
    file.bundle().grid();
    std::string expected;
    std::vector<std::string> names;
    const auto add = [&](const std::string& name, const Craft::Properties& properties) {
        file.dataset(Craft::fields + name, H5T_STD_I32BE, H5T_NATIVE_INT, {24, 35}, numbers.data(),
                     properties.id());
        names.push_back(name);
    };
    Craft::Properties plain;
    add("Plain", plain);
    Craft::Properties compact;
    H5Pset_layout(compact.id(), H5D_COMPACT);
    add("Compact", compact);
    for (const std::vector<hsize_t>& chunk :
         {std::vector<hsize_t>{24, 35}, {5, 35}, {24, 6}, {7, 8}, {1, 1}, {24, 1}, {1, 35}}) {
        for (int filters = 0; filters < 8; ++filters) {
            Craft::Properties properties;
            properties.chunk(chunk).filters((filters & 1) != 0, (filters & 2) != 0 ? 5 : 0,
                                            (filters & 4) != 0);
            add("C" + std::to_string(chunk[0]) + "x" + std::to_string(chunk[1]) + "f" +
                    std::to_string(filters),
                properties);
        }
    }
    Craft::Properties twice;
    twice.chunk({5, 8}).filters(true, 9, true).filters(true, 1, true);
    add("Twice", twice);
    // Filters that are the library's to undo.
    Craft::Properties packed;
    packed.chunk({5, 8});
    ASSERT_GE(H5Pset_scaleoffset(packed.id(), H5Z_SO_INT, 0), 0);
    add("Packed", packed);
    file.close();
    const Bundle bundle = read(file_);
    std::string values = "int32 (35 24 ) ";
    for (const int number : numbers)
        values += std::to_string(number) + " ";
    for (const std::string& name : names)
        EXPECT_EQ(textOf(creatorOf(bundle, name, "")), values) << name;
}

TEST_F(BundleFile, ArraysThatComeInManyPiecesAreWholeWhateverTheirLayout) {
    const std::vector<double> numbers = ramp<double>(std::size_t{1500} * 1200);
    Craft::File file(file_);
    file.bundle().grid();
    std::vector<std::string> names;
    const auto add = [&](const std::string& name, const std::vector<hsize_t>& extents,
                         const std::vector<hsize_t>& chunk) {
        Craft::Properties properties;
        if (!chunk.empty())
            properties.chunk(chunk);
        file.dataset(Craft::fields + name, H5T_IEEE_F64BE, H5T_NATIVE_DOUBLE, extents, numbers.data(),
                     properties.id());
        names.push_back(name);
    };
    add("Plain", {1500, 1200}, {});
    add("Rows", {1500, 1200}, {70, 1200});
    add("Row", {1500, 1200}, {1, 1200});
    add("PartsOfRows", {1500, 1200}, {1, 500});
    // Chunks that are no runs of the array: it is one piece, larger than the memory for pieces.
    add("Tiles", {1500, 1200}, {400, 700});
    add("Columns", {1500, 1200}, {1500, 100});
    add("Line", {1500 * 1200}, {99'999});
    // One piece that takes more than half of the memory.
    add("LargeChunks", {1500 * 1200}, {1'000'000});
    add("Layers", {15, 100, 1200}, {1, 60, 1200});
    file.close();
    const Bundle bundle = read(file_);
    for (const std::string& name : names) {
        const auto array =
            Anchor::dynamicCast<Sheaf::TypedArray<double>>(creatorOf(bundle, name, "")->create(false));
        ASSERT_TRUE(array) << name;
        EXPECT_TRUE(std::equal(numbers.begin(), numbers.end(), array->base_vector().begin(),
                               array->base_vector().end()))
            << name;
    }
}

TEST_F(BundleFile, NewestFormOfTheFormatIsRead) {
    const std::vector<int> numbers = ramp<int>(24 * 35);
    for (const auto form : {Craft::File::Form::Version18, Craft::File::Form::Latest}) {
        Craft::File file(file_, form);
        file.bundle().grid();
        Craft::Properties one;
        one.chunk({24, 35}).filters(true, 5, false);
        Craft::Properties many;
        many.chunk({7, 8}).filters(false, 5, false);
        Craft::Properties unfiltered;
        unfiltered.chunk({7, 8});
        Craft::Properties edges;
        edges.chunk({7, 8}).filters(false, 5, false);
        ASSERT_GE(H5Pset_chunk_opts(edges.id(), H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS), 0);
        file.dataset(Craft::fields + "One", H5T_STD_I32LE, H5T_NATIVE_INT, {24, 35}, numbers.data(),
                     one.id());
        file.dataset(Craft::fields + "Many", H5T_STD_I32LE, H5T_NATIVE_INT, {24, 35}, numbers.data(),
                     many.id());
        file.dataset(Craft::fields + "Raw", H5T_STD_I32LE, H5T_NATIVE_INT, {24, 35}, numbers.data(),
                     unfiltered.id());
        if (form == Craft::File::Form::Latest)
            file.dataset(Craft::fields + "Edges", H5T_STD_I32LE, H5T_NATIVE_INT, {24, 35}, numbers.data(),
                         edges.id());
        for (int i = 0; i < 100; ++i) // enough links for an index
            file.group(Craft::fields + "Empty" + std::to_string(i));
        file.close();
        const Bundle bundle = read(file_);
        const std::string expected = textOf(creatorOf(bundle, "One", ""));
        EXPECT_THAT(expected, HasSubstr(" 837 838 839 "));
        EXPECT_EQ(textOf(creatorOf(bundle, "Many", "")), expected);
        EXPECT_EQ(textOf(creatorOf(bundle, "Raw", "")), expected);
        if (form == Craft::File::Form::Latest) {
            EXPECT_EQ(textOf(creatorOf(bundle, "Edges", "")), expected);
        }
    }
}

TEST_F(BundleFile, DataThatWasNeverWrittenReadsAsTheFillValue) {
    Craft::File file(file_);
    file.bundle().grid();
    const int fill = -7;
    for (const bool isChunked : {false, true}) {
        Craft::Properties properties;
        if (isChunked)
            properties.chunk({3}).filters(false, 5, false);
        H5Pset_fill_value(properties.id(), H5T_NATIVE_INT, &fill);
        file.dataset(Craft::fields + (isChunked ? "Chunked" : "Plain"), H5T_STD_I32BE, H5T_NATIVE_INT, {4},
                     nullptr, properties.id());
    }
    file.close();
    const Bundle bundle = read(file_);
    EXPECT_EQ(textOf(creatorOf(bundle, "Chunked", "")), "int32 (4 ) -7 -7 -7 -7 ");
    EXPECT_EQ(textOf(creatorOf(bundle, "Plain", "")), "int32 (4 ) -7 -7 -7 -7 ");
}

TEST_F(BundleFile, OneDatasetInTwoPlacesIsReadInBoth) {
    const std::vector<int> numbers = ramp<int>(3);
    Craft::File file(file_);
    file.bundle().grid().dataset(Craft::fields + "A", H5T_STD_I32LE, H5T_NATIVE_INT, {3}, numbers.data());
    Craft::need(H5Lcreate_hard(file.id(), (Craft::fields + "A").c_str(), file.id(),
                               (Craft::fields + "B").c_str(), H5P_DEFAULT, H5P_DEFAULT),
                "link");
    file.close();
    const Bundle bundle = read(file_);
    EXPECT_EQ(textOf(creatorOf(bundle, "A", "")), textOf(creatorOf(bundle, "B", "")));
}

/// What a program prints; nothing where it cannot be run.
std::optional<std::string> outputOf(const std::string& command) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string output;
    char buffer[4096];
    while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe.get()))
        output.append(buffer, got);
    return output.empty() ? std::nullopt : std::optional(output);
}

TEST_F(BundleFile, WrittenFileShowsTheSameToH5dump) {
    if (!outputOf("command -v h5dump"))
        GTEST_SKIP() << "no h5dump: hdf5-tools has it";
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 2.5, "coast");
    grid.field("Positions", "a", Support::Points{{1.5, -2, 0}, {4, 5.25, 6}});
    grid.field("Intensity", "", std::vector<unsigned short>{7, 65535});
    grid.field("RGB", "a", std::vector<Sheaf::Element::Color>{{1, 2, 3}, {255, 0, 128}});
    grid.field(
        "Flat", "b",
        Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Sheaf::Extents{3, 2}, ramp<signed char>(6))));
    grid.grid().makeFragment("a")->overlapHigh = {1, 2, 3};
    GridBuilder(*bundle, 2.5, "grid", {1, 1}, 9).field("Positions", "", lattice({4, 3, 1}));
    Tidewatch::writeBundleFile(*bundle, file_);
    const auto dump = outputOf("h5dump -y -m %.17g '" + file_ + "' 2>&1");
    ASSERT_TRUE(dump);
    std::string flat;
    for (const char character : *dump) {
        const bool isBlank = character == ' ' || character == '\n';
        if (!isBlank || (!flat.empty() && flat.back() != ' '))
            flat += isBlank ? ' ' : character;
    }
    EXPECT_THAT(flat, HasSubstr("\"tidewatch-bundle\""));
    EXPECT_THAT(flat,
                HasSubstr("ATTRIBUTE \"version\" { DATATYPE H5T_STD_I32LE DATASPACE SCALAR DATA { 1 }"));
    EXPECT_THAT(flat,
                HasSubstr("ATTRIBUTE \"time\" { DATATYPE H5T_IEEE_F64LE DATASPACE SCALAR DATA { 2.5 }"));
    EXPECT_THAT(flat,
                HasSubstr("DATASET \"a\" { DATATYPE H5T_IEEE_F64LE DATASPACE SIMPLE { ( 2, 3 ) / ( 2, 3 ) } "
                          "DATA { 1.5, -2, 0, 4, 5.25, 6 }"));
    EXPECT_THAT(flat,
                HasSubstr("DATASET \"Intensity\" { DATATYPE H5T_STD_U16LE DATASPACE SIMPLE { ( 2 ) / ( 2 ) } "
                          "DATA { 7, 65535 }"));
    EXPECT_THAT(flat,
                HasSubstr("DATASET \"a\" { DATATYPE H5T_STD_U8LE DATASPACE SIMPLE { ( 2, 3 ) / ( 2, 3 ) } "
                          "DATA { 1, 2, 3, 255, 0, 128 }"));
    EXPECT_THAT(flat,
                HasSubstr("DATASET \"b\" { DATATYPE H5T_STD_I8LE DATASPACE SIMPLE { ( 2, 3 ) / ( 2, 3 ) } "
                          "DATA { 0, 1, 2, 3, 4, 5 }"));
    EXPECT_THAT(
        flat,
        HasSubstr("ATTRIBUTE \"overlap_high\" { DATATYPE H5T_STD_U64LE DATASPACE SIMPLE { ( 3 ) / ( 3 ) } "
                  "DATA { 1, 2, 3 }"));
    EXPECT_THAT(
        flat,
        HasSubstr("ATTRIBUTE \"refinement\" { DATATYPE H5T_STD_I32LE DATASPACE SIMPLE { ( 2 ) / ( 2 ) } "
                  "DATA { 1, 1 }"));
    EXPECT_THAT(flat,
                HasSubstr("ATTRIBUTE \"excluded\" { DATATYPE H5T_STD_I32LE DATASPACE SCALAR DATA { 9 }"));
    EXPECT_THAT(flat,
                HasSubstr("ATTRIBUTE \"extents\" { DATATYPE H5T_STD_U64LE DATASPACE SIMPLE { ( 3 ) / ( 3 ) } "
                          "DATA { 4, 3, 1 }"));
    EXPECT_THAT(flat, HasSubstr("430000.5, -5920000.25, 0.10000000000000001"));
}

// What files state of grids and fields.

Sheaf::FileStatement fullStatement() {
    Sheaf::FileStatement statement;
    statement.step = {0.01, 0.001, 0.25};
    statement.offset = {-7, 1e5, 0};
    statement.gpsTime = Sheaf::FileStatement::GpsTime::Week;
    statement.fileSourceId = 65535;
    statement.systemIdentifier = "Flieger \xc3\xbc"
                                 "ber Sylt";
    statement.records = {{"Somebody", 1, "first", {0, 255, 1}},
                         {"Somebody", 1, "", {}},
                         {"Vermesser \xfc", 65535, "Latin-1: \xe4", std::vector<std::uint8_t>(70'000, 'x')}};
    return statement;
}

/// Points with values whose description is `encoding`, in a grid that states `statement`.
Bundle statedBundle(const std::string& name, const Sheaf::FileStatement& statement,
                    const Sheaf::FieldEncoding& encoding, const std::string& system,
                    const std::string& fragment = "f") {
    const Bundle bundle = emptyBundle();
    GridBuilder grid(*bundle, 1, name);
    grid.field("Positions", fragment, somePoints(3)).field("Height", fragment, std::vector<double>{1, 2, 3});
    grid.grid().setStatement(statement);
    const auto chart = grid.grid().findChart("");
    chart->setReferenceSystem(system);
    grid.grid().skeletons().findVertices(-1)->representations()(chart)->findField("Height")->setEncoding(
        encoding);
    return bundle;
}

const Sheaf::FieldEncoding heightEncoding{"Height", "above [m]", &typeid(short), 0.01, -5.0, -32768.0L};

TEST_F(BundleFile, WhatFilesStateOfGridsAndFieldsRoundTrips) {
    expectRoundTrip(statedBundle("all", fullStatement(), heightEncoding, "LOCAL_CS[\"a\"]"));
    // Data without fragments is its field's own.
    expectRoundTrip(statedBundle("whole", {}, heightEncoding, "", ""));
    Sheaf::FileStatement adjusted;
    adjusted.gpsTime = Sheaf::FileStatement::GpsTime::Adjusted;
    adjusted.systemIdentifier = "";
    expectRoundTrip(statedBundle("part", adjusted, {"x", "", &typeid(float), {}, {}, {}}, ""));
    for (const std::size_t size : {std::size_t{65'535}, std::size_t{65'536}, std::size_t{1} << 20})
        expectRoundTrip(statedBundle("long", {}, heightEncoding, std::string(size, 'w')));
}

TEST_F(BundleFile, EncodingThatExtraBytesDoNotHaveIsLeftOut) {
    const Bundle bundle =
        statedBundle("g", {}, {"x", "", &typeid(long double), {}, {}, {}}, "LOCAL_CS[\"a\"]");
    const Bundle back = roundTrip(bundle);
    const auto grid = back->slices().begin()->second.lock()->grids().begin()->second.lock();
    const auto field =
        grid->getField(grid->findCartesianChart(""), "Height", grid->skeletons().findVertices(-1));
    EXPECT_FALSE(field->encoding());
}

TEST_F(BundleFile, StatementsThatAreNotReadAgainAreRefused) {
    const auto refused = [&](const auto& change, const std::string& system = "") {
        Sheaf::FileStatement statement;
        change(statement);
        return messageOf([&] {
            Tidewatch::writeBundleFile(*statedBundle("g", statement, heightEncoding, system), file_);
        });
    };
    const auto nothing = [](Sheaf::FileStatement&) {};
    EXPECT_THAT(refused([](auto& of) {
                    of.step = {0.1, 0.0, 0.1};
                }),
                HasSubstr("not a finite number above 0"));
    EXPECT_THAT(refused([](auto& of) {
                    of.offset = {0, std::numeric_limits<double>::infinity(), 0};
                }),
                HasSubstr("offset of coordinates"));
    EXPECT_THAT(refused([](auto& of) { of.systemIdentifier = std::string("a\0b", 3); }),
                HasSubstr("/g/system_identifier: a text that contains a zero"));
    EXPECT_THAT(refused([](auto& of) { of.systemIdentifier = std::string(65'537, 'a'); }),
                HasSubstr("a text of 65537 bytes"));
    EXPECT_THAT(refused([](auto& of) {
                    of.records = {{std::string(1, '\0'), 1}};
                }),
                HasSubstr("/g/records/000000: a text that contains a zero"));
    EXPECT_THAT(refused([](auto& of) { of.records.resize(10'001); }), HasSubstr("10001 records"));
    EXPECT_THAT(refused([](auto& of) {
                    of.records = {{"a", 1, "", std::vector<std::uint8_t>(std::size_t{128} << 20)}};
                }),
                HasSubstr("than can be read again"));
    EXPECT_THAT(refused(nothing, std::string("a\0b", 3)), HasSubstr("/crs: a text that contains a zero"));
    EXPECT_THAT(refused(nothing, std::string((1 << 20) + 1, 'a')), HasSubstr("a text of 1048577 bytes"));
}

TEST_F(BundleFile, GridsKeepTheirOwnStatements) {
    const Bundle bundle = emptyBundle();
    for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{2}}) {
        Sheaf::FileStatement statement;
        statement.fileSourceId = number;
        statement.records = {{"Somebody", number, "", {1}}};
        GridBuilder grid(*bundle, 0, "grid" + std::to_string(number));
        grid.field("Positions", "", somePoints(2));
        grid.grid().setStatement(statement);
    }
    expectRoundTrip(bundle);
    const Bundle back = read(file_);
    for (const auto& [name, grid] : back->slices().begin()->second.lock()->grids())
        EXPECT_EQ("grid" + std::to_string(*grid.lock()->statement().fileSourceId), name);
}

TEST_F(BundleFile, PlacesAsOtherProgramsWriteThemAreRead) {
    const std::string grid = "/slices/t/grids/g";
    {
        Craft::File file(file_);
        file.bundle().grid();
        file.group(grid + "/charts/C").longText(grid + "/charts/C", "crs", "LOCAL_CS[\"a\"]");
        file.number(grid, "file_source_id", 7).longText(grid, "gps_time", "adjusted");
        const std::vector<int> bytes{1, 2, 255};
        file.dataset(grid + "/records/000000", H5T_STD_U8LE, H5T_NATIVE_INT, {3}, bytes.data());
        file.longText(grid + "/records/000000", "user_id", "Somebody");
        file.number(grid + "/records/000000", "record_id", 1);
    }
    const auto found = read(file_)->slices().begin()->second.lock()->grids().begin()->second.lock();
    EXPECT_EQ(found->findChart("C")->referenceSystem(), "LOCAL_CS[\"a\"]");
    EXPECT_EQ(found->statement().fileSourceId, 7);
    EXPECT_EQ(found->statement().gpsTime, Sheaf::FileStatement::GpsTime::Adjusted);
    EXPECT_EQ(found->statement().records, (std::vector<Sheaf::FileRecord>{{"Somebody", 1, "", {1, 2, 255}}}));
    EXPECT_FALSE(found->statement().step);
    EXPECT_FALSE(found->statement().systemIdentifier);
}

} // namespace
