// SPDX-License-Identifier: Apache-2.0
//
// Outputs that are written side by side: the same files and reports as one after the other.
#include "anchor/Error.hpp"
#include "library/ascii/exportAscii.hpp"
#include "library/las/exportLas.hpp"
#include "library/pcd/exportPcd.hpp"
#include "readers/registerReaders.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/ThreadWorkers.hpp"
#include "support/compressLas.hpp"

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using Tree = std::map<std::string, std::string>;

class ConcurrentOutputs : public ::testing::Test {
protected:
    ConcurrentOutputs() {
        registerReaders();
        for (std::size_t number = 0; number < 14; ++number) {
            Support::LasFileBuilder file;
            file.minor = 2;
            file.format = 3;
            // One that is larger than its part of a processor, and some that hold nothing.
            file.addVariedPoints(number == 5 ? 40'000 : number % 6 == 4 ? 0 : 700 * number + 1);
            const std::string name = "in" + std::to_string(number) + ".laz";
            Support::writeBytes(folder_ / name, Support::compressLas(file, 3000));
            files_.push_back(folder_ / name);
        }
    }

    [[nodiscard]] InputOptions inputs(unsigned threads) const {
        InputOptions options;
        options.files = files_;
        options.fragmentPoints = 2500;
        options.workers = Support::threadWorkers(threads);
        return options;
    }

    [[nodiscard]] OutputPattern pattern(const std::string& name) const {
        return OutputPattern((folder_ / "out") + "/" + name);
    }

    Tree takeFiles() {
        Tree tree;
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "out"))
            tree[entry.path().lexically_relative(folder_ / "out")] =
                entry.is_regular_file() ? Support::readBytes(entry.path()) : "folder";
        fs::remove_all(folder_ / "out");
        return tree;
    }

    static std::string textOf(const ExportReport& report) {
        std::string text;
        for (const auto& file : report.files)
            text += file.path + " " + std::to_string(file.items) + " " + std::to_string(file.bytes) + "\n";
        for (const std::string& note : report.notes)
            text += note + "\n";
        for (const Loss& loss : report.losses)
            text += loss.kind + ": " + loss.message + "\n";
        for (const auto& failure : report.failures)
            text += failure.name + " failed: " + failure.message + "\n";
        return text + std::to_string(report.done) + " of " + std::to_string(report.outputs);
    }

    Support::TemporaryFolder folder_;
    std::vector<std::string> files_;
};

TEST_F(ConcurrentOutputs, AreTheSameWhateverTheNumberOfThreads) {
    std::vector<unsigned> counts{2, 7};
    const auto compare = [&](const std::string& what, const std::function<ExportReport(const Inputs&)>& run) {
        const std::string expected = textOf(run(Inputs(inputs(1))));
        const Tree files = takeFiles();
        EXPECT_GT(files.size(), 10U) << what;
        for (const unsigned threads : counts) {
            EXPECT_EQ(textOf(run(Inputs(inputs(threads)))), expected) << what << " " << threads;
            EXPECT_TRUE(takeFiles() == files) << what << " " << threads;
        }
    };
    for (const bool isEach : {false, true}) {
        if (isEach)
            counts = {3};
        compare("las", [&](const Inputs& read) {
            LasOptions options;
            options.output = pattern("{grid}.laz");
            options.each.isPlaced = isEach;
            options.verify = true;
            return exportLas(read, options);
        });
        compare("pcd", [&](const Inputs& read) {
            PcdOptions options;
            options.output = pattern("{grid}.pcd");
            options.each.isPlaced = isEach;
            return exportPcd(read, options);
        });
        compare("ascii", [&](const Inputs& read) {
            AsciiOptions options;
            options.output = pattern("{grid}");
            options.each.isPlaced = isEach;
            return exportAscii(read, options);
        });
    }
}

TEST_F(ConcurrentOutputs, SettingsAreShownInOrderOnTheCallingThread) {
    for (const unsigned threads : {1U, 3U}) {
        std::vector<std::string> shown;
        LasOptions options;
        options.output = pattern("{grid}.laz");
        options.showSettings = [&, caller = std::this_thread::get_id()](const std::string& text) {
            EXPECT_EQ(std::this_thread::get_id(), caller);
            shown.push_back(text);
        };
        exportLas(Inputs(inputs(threads)), options);
        ASSERT_THAT(shown, SizeIs(files_.size()));
        takeFiles();
    }
}

TEST_F(ConcurrentOutputs, OnesThatFailEndTheOthersOnlyWhereThatIsAsked) {
    const std::string damaged = Support::readBytes(files_[7]);
    Support::writeBytes(files_[7], damaged.substr(0, damaged.size() - 200));
    InputOptions read = inputs(3);
    LasOptions options;
    options.output = pattern("{grid}.laz");
    EXPECT_THROW(exportLas(Inputs(read), options), Anchor::Error);
    EXPECT_FALSE(fs::exists(folder_ / "out"));

    options.each.keepsGoing = read.skipsUnreadable = true;
    const ExportReport report = exportLas(Inputs(read), options);
    ASSERT_THAT(report.failures, SizeIs(1));
    EXPECT_THAT(report.failures[0].message, HasSubstr("in7.laz"));
    const Tree files = takeFiles();
    EXPECT_FALSE(files.contains("in7.laz"));
    EXPECT_TRUE(files.contains("in13.laz"));
}

} // namespace
} // namespace Tidewatch
