// SPDX-License-Identifier: Apache-2.0
#include "convlib/BasicConverterDefs.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "sheaf/CachedCreator.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Converter final : public ConvLib::BasicConverterDefs {
public:
    bool Run() override {
        recordWrittenFile({"out.txt", 12, 3, false});
        return true;
    }
};

TEST(BasicConverterDefs, WithoutFiltersEverythingPasses) {
    Converter converter;
    EXPECT_TRUE(converter.UseThisGrid("any"));
    EXPECT_TRUE(converter.UseThisField(""));
    EXPECT_TRUE(converter.UseThisTime(-1e300));
}

TEST(BasicConverterDefs, GlobsAreCaseSensitiveAndAnyOneMayMatch) {
    Converter converter;
    converter.GridFilter = {"coast*", "dyke-[12]"};
    EXPECT_TRUE(converter.UseThisGrid("coast"));
    EXPECT_TRUE(converter.UseThisGrid("coast-north"));
    EXPECT_TRUE(converter.UseThisGrid("dyke-2"));
    EXPECT_FALSE(converter.UseThisGrid("Coast"));
    EXPECT_FALSE(converter.UseThisGrid("dyke-3"));
    converter.FieldFilter = {"[broken", "?"};
    EXPECT_TRUE(converter.UseThisField("[broken"));
    EXPECT_TRUE(converter.UseThisField("Z"));
    EXPECT_FALSE(converter.UseThisField("broken"));
}

TEST(BasicConverterDefs, BothEndsOfATimeRangeBelongToIt) {
    Converter converter;
    converter.TimeFilter = {{1, 2}, {5, 5}};
    EXPECT_TRUE(converter.UseThisTime(1));
    EXPECT_TRUE(converter.UseThisTime(2));
    EXPECT_TRUE(converter.UseThisTime(5));
    EXPECT_FALSE(converter.UseThisTime(3));
    EXPECT_FALSE(converter.UseThisTime(std::numeric_limits<double>::quiet_NaN()));
}

TEST(BasicConverterDefs, ParametersListWhatIsSet) {
    Converter converter;
    converter.OutputPath = "out.pcd";
    EXPECT_EQ(converter.printParameters(), "\nOutputPath: out.pcd ");
    EXPECT_EQ(converter.printSecondary(), "");
    converter.setInputFiles({"a.laz", "b.h5"});
    converter.TimeFilter = {{0.5, 1e6}};
    converter.GridFilter = {"a*", "b"};
    converter.FieldFilter = {"Positions"};
    converter.setFlushLines(false);
    EXPECT_EQ(converter.printParameters(),
              "\nOutputPath: out.pcd \nInputFiles: a.laz b.h5 \nTimes: 0.5:1e+06 "
              "\nGrids: a* b \nFields: Positions ");
    EXPECT_EQ(converter.printSecondary(), "\nFlushLines: 0 ");
}

TEST(BasicConverterDefs, AdditionsBelongToOneGridAtOneTime) {
    Converter converter;
    EXPECT_TRUE(converter.additions(1, "a").empty());
    converter.setAdditions(1, "a", {{}, 16, "text"});
    EXPECT_EQ(converter.additions(1, "a").prj, "text");
    EXPECT_TRUE(converter.additions(2, "a").empty());
    EXPECT_TRUE(converter.additions(1, "b").empty());
    EXPECT_TRUE(converter.additions().empty()) << "no grid has been taken up";
    converter.takeUpGrid(1, "a");
    EXPECT_EQ(converter.additions().headerBits, 16);
    EXPECT_EQ(converter.printParameters(), "\nOutputPath:  \nAdditions: a 1 HeaderBits:16 prj:4 ");
    converter.setAdditions(1, "a", {});
    EXPECT_EQ(converter.printParameters(), "\nOutputPath:  ");
}

TEST(BasicConverterDefs, LinesAreFlushedUnlessSetOtherwise) {
    Converter converter;
    EXPECT_TRUE(converter.FlushLines());
    converter.setFlushLines(false);
    EXPECT_FALSE(converter.FlushLines());
}

TEST(BasicConverterDefs, WrittenFilesAreRecordedInOrder) {
    Converter converter;
    EXPECT_TRUE(converter.writtenFiles().empty());
    converter.Run();
    ASSERT_EQ(converter.writtenFiles().size(), 1U);
    EXPECT_EQ(converter.writtenFiles()[0].path, "out.txt");
    EXPECT_EQ(converter.writtenFiles()[0].bytes, 12U);
    EXPECT_EQ(converter.writtenFiles()[0].items, 3U);
}

/// An array that has to be made, as if from a file.
class Demanded final : public Sheaf::CachedCreator {
public:
    Demanded() : CachedCreator(typeid(int), Sheaf::Extents{1000}) {}

protected:
    [[nodiscard]] Made make() const override { return {Sheaf::makeArray(std::vector<int>(1000))}; }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return 4000; }
};

/// Reads files that begin with "TIDE": a grid named after what follows.
class TideReader final : public ConvLib::Reader {
public:
    class Report final : public ConvLib::InputReport {
    public:
        explicit Report(std::string path) : path_(std::move(path)) {}
        [[nodiscard]] std::string file() const override { return path_; }
        [[nodiscard]] std::string kind() const override { return "tide"; }
        [[nodiscard]] std::string grid() const override { return {}; }
        [[nodiscard]] std::vector<std::string> notCarried() const override { return {}; }
        [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override {
            return std::nullopt;
        }

    private:
        std::string path_;
    };

    [[nodiscard]] std::string name() const override { return "tide file"; }
    [[nodiscard]] bool recognises(const std::string&, std::span<const std::byte> head) const override {
        return head.size() >= 4 && std::memcmp(head.data(), "TIDE", 4) == 0;
    }
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override {
        const auto grid =
            bundle.makeSlice(options.SliceTime)->makeGrid(Support::readBytes(path).substr(4), path);
        grid->skeletons()
            .make({0, {}})
            ->representations()
            .make(grid->declareCartesianChart("c"))
            ->makeField("Level", typeid(int))
            ->addFragment(nullptr, Anchor::makeStrong<Demanded>());
        return Anchor::makeStrong<Report>(path);
    }
};

struct Loading : ::testing::Test {
    Loading() { ConvLib::registerReader(Anchor::makeStrong<TideReader>()); }
    ~Loading() override {
        ConvLib::unregisterReader("tide file");
        Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit);
    }

    std::string file(const std::string& name, const std::string& content) {
        Support::writeBytes(folder.path() / name, content);
        return folder / name;
    }

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> availableIn(const char* grid) const {
        Anchor::StrongPtr<Anchor::Cacheable> data;
        bundle->slices().begin()->second.lock()->grids().at(grid).lock()->skeletons().iterate_all(
            [&](const Sheaf::FieldFragment& stop) {
                data = stop.data->available();
                return true;
            });
        return data;
    }

    Support::TemporaryFolder folder;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Converter converter;
};

TEST_F(Loading, FilesFillTheBundleThroughRegisteredReaders) {
    converter.bundleptr = bundle;
    ConvLib::ReadOptions options;
    options.SliceTime = 7;
    converter.setInputFiles({file("a", "TIDEnorth"), file("b", "TIDEsouth")}, options);
    converter.loadFilesIntoBundle(Converter::ReadStructure);
    EXPECT_EQ(bundle->slices().at(7.0).lock()->grids().size(), 2U);
    EXPECT_EQ(converter.inputReports().size(), 2U);
    EXPECT_FALSE(availableIn("north"));
}

TEST_F(Loading, EverythingNowStaysInMemoryWhateverTheLimit) {
    Anchor::Cache::MemCache().setLimit(0);
    converter.bundleptr = bundle;
    converter.setInputFiles({file("a", "TIDEnorth"), file("b", "TIDEsouth")});
    converter.loadFilesIntoBundle(Converter::ReadEverything);
    EXPECT_TRUE(availableIn("north"));
    EXPECT_TRUE(availableIn("south"));
}

TEST_F(Loading, WithoutABundleIsRefused) {
    converter.setInputFiles({file("a", "TIDEnorth")});
    EXPECT_THROW(converter.loadFilesIntoBundle(Converter::ReadStructure), Anchor::ModelError);
}

TEST_F(Loading, FilesThatNoReaderKnowsAreNamedInTheError) {
    const std::string strange = file("strange", "EBB");
    try {
        ConvLib::readFile(*bundle, strange, {});
        FAIL();
    } catch (const Anchor::FormatError& error) {
        EXPECT_THAT(error.what(), HasSubstr(strange));
        EXPECT_THAT(error.what(), HasSubstr("tide file"));
    }
    EXPECT_THROW(ConvLib::readFile(*bundle, file("empty", ""), {}), Anchor::FormatError);
    EXPECT_THROW(ConvLib::readFile(*bundle, folder / "absent", {}), Anchor::FileError);
    EXPECT_THROW(ConvLib::readFile(*bundle, folder.path().string(), {}), Anchor::FileError);
    EXPECT_THROW(ConvLib::readFile(*bundle, "/dev/null", {}), Anchor::FileError);
}

TEST_F(Loading, ReaderOfTheSameNameTakesTheOthersPlace) {
    const std::size_t before = ConvLib::registeredReaders().size();
    ConvLib::registerReader(Anchor::makeStrong<TideReader>());
    EXPECT_EQ(ConvLib::registeredReaders().size(), before);
    ConvLib::unregisterReader("tide file");
    EXPECT_EQ(ConvLib::registeredReaders().size(), before - 1);
}

/// The slots that exporters compiled elsewhere rely on: their order in the table of virtual operations.
TEST(BasicConverterDefs, VirtualOperationsStandInTheContractsOrder) {
    // With the Itanium C++ ABI a pointer to a virtual member function holds 1 + the byte offset of its slot.
    const auto slot = [](auto member) {
        std::ptrdiff_t words[2];
        static_assert(sizeof member == sizeof words);
        std::memcpy(words, &member, sizeof words);
        return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
    };
    using Base = ConvLib::BasicConverterDefs;
    // Slots 0 and 1 belong to the two destructors.
    EXPECT_EQ(slot(&Base::printSecondary), 2);
    EXPECT_EQ(slot(&Base::UseThisGrid), 3);
    EXPECT_EQ(slot(&Base::UseThisTime), 4);
    EXPECT_EQ(slot(&Base::UseThisField), 5);
    EXPECT_EQ(slot(&Base::Run), 6);
    EXPECT_EQ(slot(&Base::loadFilesIntoBundle), 7);
}

TEST(BasicConverterDefs, FourMembersStandFirstInTheContractsOrder) {
    const Converter converter;
    const auto place = [&](const auto& member) {
        return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&converter);
    };
    EXPECT_EQ(place(converter.bundleptr), static_cast<std::ptrdiff_t>(sizeof(void*)));
    EXPECT_LT(place(converter.bundleptr), place(converter.OutputPath));
    EXPECT_LT(place(converter.OutputPath), place(converter.Errors));
    EXPECT_LT(place(converter.Errors), place(converter.Progress));
    EXPECT_LT(place(converter.Progress), place(converter.TimeFilter));
}

} // namespace
