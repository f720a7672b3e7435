// SPDX-License-Identifier: Apache-2.0
#include "host/export/ExportCommand.hpp"

#include "anchor/Error.hpp"
#include "host/Interruption.hpp"
#include "library/BuildingReader.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// Visits the bundle like an exporter and writes "TIME GRID" for each grid that a test wants written.
class LabelExporter : public ConvLib::BasicConverterDefs {
public:
    bool Run() override {
        const auto bundle = bundleptr.lock();
        for (const auto& [time, slice] : bundle->slices()) {
            if (!UseThisTime(time))
                continue;
            for (const auto& [name, grid] : slice.lock()->grids()) {
                if (!UseThisGrid(name))
                    continue;
                takeUpGrid(time, name);
                if (name != "empty")
                    write(OutputPath, std::to_string(static_cast<int>(time)) + " " + name);
            }
        }
        if (atTheEnd)
            atTheEnd(*this);
        return result;
    }

    void write(const std::string& path, const std::string& text, std::uint64_t claimedMore = 0) {
        Support::writeBytes(path, text);
        recordWrittenFile({path, text.size() + claimedMore, 1, false});
    }
    void record(ConvLib::WrittenFile file) { recordWrittenFile(std::move(file)); }

    std::function<void(LabelExporter&)> atTheEnd;
    bool result = true;
};

class LabelRun final : public ExportRun {
public:
    explicit LabelRun(const RunScope& scope, const Anchor::StrongPtr<Progress>& progress)
        : recorder_(Anchor::makeStrong<RunRecorder>(scope, progress)) {}

    LabelExporter& exporter() override { return exporter_; }
    RunRecorder& recorder() override { return *recorder_; }
    std::set<std::string> fieldsRead() const override { return {"Label"}; }
    std::string moreSettings() const override { return "\nMore: 1 "; }
    std::string whySkipped(const ExportedGrid&) const override { return "it is empty"; }
    std::optional<std::uint64_t> itemsOf(const ExportedGrid&) const override { return expectedItems; }
    void findLosses(const ExportedGrid& grid, Losses& losses) const override {
        if (grid.name == "lossy")
            losses.add("rounding", "lossy loses");
    }

    std::optional<std::uint64_t> expectedItems;

private:
    Anchor::StrongPtr<RunRecorder> recorder_;
    LabelExporter exporter_;
};

class LabelFormat final : public ExportFormat {
public:
    std::string_view name() const override { return "LABEL"; }
    std::string_view extension() const override { return ".lbl"; }
    std::string_view unit() const override { return "labels"; }
    std::vector<ExpectedFile> expectedFiles(const Context& context, const RunScope& scope) const override {
        std::vector<ExpectedFile> files;
        context.selection.forEachGrid(*scope.bundle,
                                      [&](double time, const std::string& grid, const Sheaf::Grid&) {
                                          files.push_back({scope.output, time, grid});
                                      });
        return files;
    }
    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        auto run = std::make_unique<LabelRun>(scope, context.progress);
        run->exporter().atTheEnd = atTheEnd;
        run->exporter().result = result;
        run->expectedItems = expectedItems;
        return run;
    }

    std::function<void(LabelExporter&)> atTheEnd;
    bool result = true;
    std::optional<std::uint64_t> expectedItems;
};

class ExportTest : public ::testing::Test {
protected:
    ExportTest() {
        Support::writeBytes(folder_ / "input", "x");
        options.lastWins = true;
    }

    static void build(Sheaf::Bundle& bundle, const std::vector<std::pair<double, std::string>>& grids) {
        for (const auto& [time, name] : grids)
            Support::GridBuilder(bundle, time, name);
    }

    /// The exit status; nullopt when an error was thrown, whose text is then in `thrown`.
    std::optional<int> run(const std::string& output,
                           const std::vector<std::pair<double, std::string>>& grids,
                           const std::vector<std::string>& notCarried = {}) {
        const ScopedReader reader([&](Sheaf::Bundle& bundle, const std::string&) { build(bundle, grids); },
                                  notCarried);
        request.inputs.files = {folder_ / "input"};
        options.output = OutputPattern(folder_ / output);
        ::testing::internal::CaptureStderr();
        ::testing::internal::CaptureStdout();
        std::optional<int> status;
        try {
            status = runExport("label", request, options, std::make_unique<LabelFormat>(format));
        } catch (const Anchor::Error& error) {
            thrown = error.what();
        }
        out = ::testing::internal::GetCapturedStdout();
        err = ::testing::internal::GetCapturedStderr();
        return status;
    }

    /// All files below the folder, the input left out.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
            const std::string name = entry.path().lexically_relative(folder_.path());
            if (entry.is_directory())
                found[name + "/"] = "";
            else if (name != "input")
                found[name] = Support::readBytes(entry.path());
        }
        return found;
    }

    using Files = std::map<std::string, std::string>;

    Support::TemporaryFolder folder_;
    ExportOptions options;
    ExportRequest request;
    LabelFormat format;
    std::string thrown, out, err;
};

TEST_F(ExportTest, AFinishedFileIsInPlaceAndInTheSummary) {
    EXPECT_EQ(run("a.lbl", {{0, "g"}}), 0);
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 g"}}));
    EXPECT_EQ(out, (folder_ / "a.lbl") + ": 1 labels, 3 bytes\n");
    EXPECT_EQ(err, "");
}

TEST_F(ExportTest, TheExporterGetsAnExtensionAndTheUserTheNameAsGiven) {
    std::string seen;
    format.atTheEnd = [&](LabelExporter& exporter) { seen = exporter.OutputPath; };
    EXPECT_EQ(run("out.d/cloud", {{0, "g"}}), 0);
    EXPECT_EQ(fs::path(seen).filename(), "cloud.lbl");
    EXPECT_EQ(fs::path(seen).parent_path().string().find('.'), std::string::npos);
    EXPECT_EQ(files(), (Files{{"out.d/", ""}, {"out.d/cloud", "0 g"}}));
}

TEST_F(ExportTest, FurtherFilesOfTheExporterKeepTheirNames) {
    format.atTheEnd = [](LabelExporter& exporter) {
        const fs::path folder = fs::path(exporter.OutputPath).parent_path() / "more";
        fs::create_directory(folder);
        exporter.write(folder / "x", "tile");
    };
    EXPECT_EQ(run("cloud", {{0, "g"}}), 0);
    EXPECT_EQ(files(), (Files{{"cloud", "0 g"}, {"more/", ""}, {"more/x", "tile"}}));
    EXPECT_THAT(out, HasSubstr("more/x: 1 labels, 4 bytes\n"));
}

TEST_F(ExportTest, FewerItemsThanTheExporterTookUpAreAnError) {
    format.expectedItems = 1;
    EXPECT_EQ(run("a.lbl", {{0, "g"}}), 0);
    format.expectedItems = 2;
    EXPECT_EQ(run("b.lbl", {{0, "g"}}), std::nullopt);
    EXPECT_EQ(thrown, "grid \"g\" at time 0: 2 elements were to be written, and 1 were");
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 g"}}));
}

TEST_F(ExportTest, OutputsThatStandByThemselvesArePlacedOneByOne) {
    options.each.isPlaced = true;
    std::vector<Files> seen;
    format.atTheEnd = [&](LabelExporter&) {
        Files placed = files();
        std::erase_if(placed, [](const auto& entry) { return entry.first.starts_with("tidewatch-"); });
        seen.push_back(placed);
    };
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "b"}, {0, "c"}}), 0);
    EXPECT_EQ(seen, (std::vector<Files>{{}, {{"a.lbl", "0 a"}}, {{"a.lbl", "0 a"}, {"b.lbl", "0 b"}}}));
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}, {"b.lbl", "0 b"}, {"c.lbl", "0 c"}}));
}

TEST_F(ExportTest, AFailureAmongOutputsThatStandByThemselves) {
    options.each.isPlaced = true;
    int runs = 0;
    format.atTheEnd = [&](LabelExporter&) {
        if (++runs == 2)
            throw Anchor::FormatError("second: is damaged");
    };
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "b"}, {0, "c"}}), 1);
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}}));
    EXPECT_THAT(err, HasSubstr("second: is damaged\ntidewatch: 1 failed; 1 of 3 outputs are in place\n"));
    runs = 0;
    options.overwrite = options.each.keepsGoing = true;
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "b"}, {0, "c"}}), 1);
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}, {"c.lbl", "0 c"}}));
}

TEST_F(ExportTest, AnInterruptionSaysWhatIsInPlace) {
    options.each.isPlaced = true;
    int runs = 0;
    format.atTheEnd = [&](LabelExporter&) {
        if (++runs == 2)
            throw Interrupted();
    };
    try {
        run("{grid}.lbl", {{0, "a"}, {0, "b"}, {0, "c"}});
        ADD_FAILURE() << "no exception";
    } catch (const Interrupted& interruption) {
        EXPECT_THAT(interruption.outcome, HasSubstr("1 of 3 outputs are in place"));
    }
    ::testing::internal::GetCapturedStdout();
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}}));
}

TEST_F(ExportTest, GridsAndTimesGetFilesOfTheirOwn) {
    EXPECT_EQ(run("{time}/{grid}.lbl", {{0, "a"}, {0, "b"}, {1, "a"}}), 0);
    EXPECT_EQ(files(),
              (Files{{"0/", ""}, {"0/a.lbl", "0 a"}, {"0/b.lbl", "0 b"}, {"1/", ""}, {"1/a.lbl", "1 a"}}));
}

TEST_F(ExportTest, OfSeveralGridsTheLastStaysAndTheOthersAreNamed) {
    request.report.json = true;
    EXPECT_EQ(run("a.lbl", {{0, "a"}, {0, "b"}, {1, "a"}}), 0);
    EXPECT_EQ(files(), (Files{{"a.lbl", "1 a"}}));
    EXPECT_THAT(
        err,
        HasSubstr("holds grid \"a\" at time 1, which overwrote grid \"a\" at time 0, grid \"b\" at time 0"));
    EXPECT_THAT(out, AllOf(HasSubstr("\"kind\": \"overwritten\""), HasSubstr("\"time\": 1.0")));
}

TEST_F(ExportTest, TwoRunsOfOneNameAreAnErrorBeforeAnyWork) {
    EXPECT_FALSE(run("{grid}{time}.lbl", {{10, "a"}, {0, "a1"}}));
    EXPECT_THAT(thrown, HasSubstr("both"));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ExportTest, AnExistingFileIsAnErrorBeforeAnyWork) {
    bool hasRun = false;
    format.atTheEnd = [&](LabelExporter&) { hasRun = true; };
    Support::writeBytes(folder_ / "b.lbl", "old");
    EXPECT_FALSE(run("{grid}.lbl", {{0, "a"}, {0, "b"}}));
    EXPECT_THAT(thrown, HasSubstr("b.lbl: already exists"));
    EXPECT_FALSE(hasRun);
    EXPECT_EQ(files(), (Files{{"b.lbl", "old"}}));

    options.overwrite = true;
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "b"}}), 0);
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}, {"b.lbl", "0 b"}}));
}

TEST_F(ExportTest, TheInputIsNeverTheOutput) {
    options.overwrite = true;
    EXPECT_FALSE(run("input", {{0, "a"}}));
    EXPECT_THAT(thrown, HasSubstr("one of the inputs"));
    EXPECT_EQ(Support::readBytes(folder_ / "input"), "x");
}

TEST_F(ExportTest, ACollisionOfANameThatWasNotKnownKeepsEverythingOut) {
    Support::writeBytes(folder_ / "extra", "old");
    format.atTheEnd = [](LabelExporter& exporter) {
        exporter.write(fs::path(exporter.OutputPath).parent_path() / "extra", "new");
    };
    EXPECT_FALSE(run("a.lbl", {{0, "g"}}));
    EXPECT_EQ(files(), (Files{{"extra", "old"}}));
}

TEST_F(ExportTest, ARecordedErrorLeavesCompleteFilesAndStatusOne) {
    format.atTheEnd = [](LabelExporter& exporter) { exporter.Errors.emplace_back("something was odd"); };
    request.report.json = true;
    EXPECT_EQ(run("a.lbl", {{0, "g"}}), 1);
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 g"}}));
    EXPECT_EQ(err, "tidewatch: something was odd\n");
    EXPECT_THAT(out, HasSubstr("\"errors\": [\n    \"something was odd\"\n  ]"));
}

TEST_F(ExportTest, ARunThatFailsPutsNothingInPlace) {
    format.atTheEnd = [](LabelExporter& exporter) { exporter.Errors.emplace_back("no way"); };
    format.result = false;
    EXPECT_EQ(run("new/{grid}.lbl", {{0, "a"}, {0, "b"}}), 1);
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(out, "");
    EXPECT_THAT(err, AllOf(HasSubstr("tidewatch: no way\n"), HasSubstr("nothing was put in place")));
}

TEST_F(ExportTest, AFailedStreamPutsNothingInPlace) {
    format.atTheEnd = [](LabelExporter& exporter) { exporter.record({exporter.OutputPath, 3, 1, true}); };
    EXPECT_FALSE(run("new/a.lbl", {{0, "g"}}));
    EXPECT_EQ(thrown, (folder_ / "new/a.lbl") +
                          ": writing failed: not everything arrived, and the system gave no reason");
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ExportTest, AFileShorterThanItsRecordPutsNothingInPlace) {
    format.atTheEnd = [](LabelExporter& exporter) { exporter.write(exporter.OutputPath, "abc", 1); };
    EXPECT_FALSE(run("a.lbl", {{0, "g"}}));
    EXPECT_THAT(thrown, HasSubstr("4 bytes were written, but the file has 3"));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ExportTest, AnExceptionOfTheExporterPutsNothingInPlace) {
    format.atTheEnd = [](LabelExporter&) { throw Anchor::FormatError("an input is damaged"); };
    EXPECT_FALSE(run("new/a.lbl", {{0, "g"}}));
    EXPECT_EQ(thrown, "an input is damaged");
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ExportTest, NothingWrittenIsAnErrorThatSaysWhy) {
    EXPECT_EQ(run("a.lbl", {{0, "empty"}}), 1);
    EXPECT_EQ(err, "tidewatch: nothing was written: grid \"empty\" at time 0: it is empty\n");
    EXPECT_EQ(out, "");
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ExportTest, FiltersThatLeaveEverythingOutAreAnErrorThatSaysWhatThereIs) {
    options.filters.grids = {"c"};
    EXPECT_EQ(run("a.lbl", {{0, "a"}, {1, "b"}}), 1);
    EXPECT_EQ(err,
              "tidewatch: nothing was written: no grid matches --grid 'c' (case counts); there are: a, b\n");
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}}), 1);
    EXPECT_EQ(run("a.lbl", {}), 1);
    EXPECT_EQ(err, "tidewatch: nothing was written: the inputs contain no grid\n");
}

TEST_F(ExportTest, ASkippedGridIsALossWhereOthersWereWritten) {
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "empty"}}), 0);
    EXPECT_EQ(err, "tidewatch: warning: grid \"empty\" at time 0: not exported: it is empty\n");
    EXPECT_EQ(files(), (Files{{"a.lbl", "0 a"}}));
}

TEST_F(ExportTest, StrictRefusesEachKindOfLoss) {
    options.losses.strict = true;
    EXPECT_EQ(run("a.lbl", {{0, "a"}, {0, "b"}}), 1);
    EXPECT_THAT(err, AllOf(HasSubstr("overwrote"), HasSubstr("--strict"), Not(HasSubstr("warning"))));
    EXPECT_EQ(run("{grid}.lbl", {{0, "a"}, {0, "empty"}}), 1);
    EXPECT_EQ(run("a.lbl", {{0, "lossy"}}), 1);
    EXPECT_EQ(run("a.lbl", {{0, "stepped"}}, {"flags"}), 1);
    EXPECT_EQ(out, "");
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(run("a.lbl", {{0, "a"}}), 0);
    EXPECT_EQ(err, "");
}

TEST_F(ExportTest, PropertiesCountOnlyForInputsThatAreExported) {
    EXPECT_EQ(run("a.lbl", {{0, "stepped"}}, {"flags"}), 0);
    EXPECT_THAT(err, HasSubstr("input: not carried: flags\n"));
    options.overwrite = true;
    options.filters.grids = {"other"};
    EXPECT_EQ(run("a.lbl", {{0, "stepped"}, {0, "other"}}, {"flags"}), 0);
    EXPECT_EQ(err, "");
}

TEST_F(ExportTest, QuietLeavesErrorsOnly) {
    request.report.quiet = true;
    EXPECT_EQ(run("a.lbl", {{0, "lossy"}}), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
    EXPECT_EQ(run("b.lbl", {{0, "empty"}}), 1);
    EXPECT_THAT(err, HasSubstr("nothing was written"));
}

TEST_F(ExportTest, ParametersAreThoseOfTheUser) {
    request.printParameters = true;
    options.filters.grids = {"g*"};
    EXPECT_EQ(run("a.lbl", {{0, "g"}}), 0);
    EXPECT_EQ(err, "OutputPath: " + (folder_ / "a.lbl") + " \nGrids: g* \nFlushLines: 0 \nMore: 1 \n");
}

TEST_F(ExportTest, AnInterruptionPutsNothingInPlace) {
    EXPECT_EXIT(
        {
            Interruption::install();
            format.atTheEnd = [](LabelExporter&) { std::raise(SIGINT); };
            const ScopedReader reader([](Sheaf::Bundle& bundle, const std::string&) {
                build(bundle, {{0, "g"}});
            });
            request.inputs.files = {folder_ / "input"};
            options.output = OutputPattern(folder_ / "new/a.lbl");
            bool wasInterrupted = false;
            try {
                (void)runExport("label", request, options, std::make_unique<LabelFormat>(format));
            } catch (const Interrupted&) {
                wasInterrupted = true;
            }
            std::_Exit(wasInterrupted && files().empty() ? 7 : 0);
        },
        ::testing::ExitedWithCode(7), "");
}

} // namespace
} // namespace Tidewatch
