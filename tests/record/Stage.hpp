// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Console.hpp"
#include "anchor/LoaderProgress.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "record/Recorder.hpp"
#include "record/SceneGrid.hpp"
#include "support/TemporaryFolder.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace Record {

/// The host of one run: a bundle, an exporter whose filters record what they are asked, a progress reporter,
/// a console and a folder, which is the current one during the run. Everything answers yes unless told
/// otherwise.
template <class Exporter>
class Stage {
public:
    /// The host's exporter. `nth` says how often that has been asked, counted from 1.
    class Host final : public Exporter {
    public:
        explicit Host(Stage& stage) : stage_(stage) {}

        bool UseThisTime(const double& time) const override {
            const std::string line = "time " + number(time);
            return stage_.ask(line, [&](int nth) { return !stage_.onTime || stage_.onTime(time, nth); });
        }
        bool UseThisGrid(const std::string& name) const override {
            const std::string line = "grid " + name;
            return stage_.ask(line, [&](int nth) { return !stage_.onGrid || stage_.onGrid(name, nth); });
        }
        bool UseThisField(const std::string& name) override {
            const std::string line = "field " + name;
            return stage_.ask(line, [&](int nth) { return !stage_.onField || stage_.onField(name, nth); });
        }

    private:
        Stage& stage_;
    };

    class Reporter final : public Anchor::LoaderProgress {
    public:
        explicit Reporter(Stage& stage) : stage_(stage) {}

        bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) override {
            return stage_.recorder.question(
                "progress \"" + text + "\" " + std::to_string(current) + " of " + std::to_string(total), [&] {
                    const int nth = ++nth_;
                    return !stage_.onProgress || stage_.onProgress(nth);
                });
        }

    private:
        Stage& stage_;
        int nth_ = 0;
    };

    Stage() {
        exporter.bundleptr = bundle;
        exporter.Progress = reporter;
        recorder.observer = [this] { observe(); };
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    SceneGrid grid(double time, const std::string& name) { return {recorder, *bundle, time, name}; }

    /// A path in the stage's folder.
    [[nodiscard]] std::string path(const std::string& name) const { return folder / name; }

    /// Runs the exporter and records all that it does, then what is left behind.
    void run() {
        files_ = filesNow();
        {
            const Surroundings surroundings(*this);
            std::string outcome;
            try {
                outcome = exporter.Run() ? "Run -> true" : "Run -> false";
            } catch (const std::filesystem::filesystem_error& error) {
                // Its words are the library's.
                outcome = "Run throws a file system error: " + error.path1().string();
            } catch (const Failure& error) {
                outcome = std::string("Run throws: ") + error.what();
            }
            recorder.observe();
            recorder.add(outcome);
        }
        recordRemains();
    }

private:
    Support::TemporaryFolder folder;

public:
    Recorder recorder{folder.path().string()};
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Anchor::StrongPtr<Reporter> reporter{new Reporter(*this)};
    Host exporter{*this};

    std::function<bool(double time, int nth)> onTime;
    std::function<bool(const std::string& name, int nth)> onGrid;
    std::function<bool(const std::string& name, int nth)> onField;
    /// `nth` counts all reports.
    std::function<bool(int nth)> onProgress;
    /// Lines about the exporter's own members after the run.
    std::function<std::vector<std::string>()> describeMembers;
    /// Whether a file that has been emptied is recorded. When a file that is written in blocks shows its
    /// first byte is its writer's business.
    bool recordsEmptying = true;

private:
    /// The stage's console and folder in place of those of the process.
    class Surroundings {
    public:
        explicit Surroundings(Stage& stage)
            : folder_(std::filesystem::current_path()),
              sink_(Anchor::Console::setSink([&stage](std::string_view message) {
                  stage.recorder.event("console \"" + std::string(message) + "\"");
              })) {
            std::filesystem::current_path(stage.folder.path());
        }
        ~Surroundings() {
            std::error_code ignored;
            std::filesystem::current_path(folder_, ignored);
            Anchor::Console::setSink(sink_);
        }
        Surroundings(const Surroundings&) = delete;
        Surroundings& operator=(const Surroundings&) = delete;

    private:
        std::filesystem::path folder_;
        Anchor::Console::Sink sink_;
    };

    template <class Answer>
    bool ask(const std::string& line, Answer&& answer) {
        const int nth = ++asked_[line];
        return recorder.question(line, [&] { return answer(nth); });
    }

    /// Compressed bytes belong to the library that made them.
    static bool isCompressed(std::string_view path) { return path.ends_with(".laz"); }

    [[nodiscard]] std::map<std::string, std::uintmax_t> filesNow() const {
        std::map<std::string, std::uintmax_t> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            const std::string name = entry.path().lexically_relative(folder.path()).string();
            if (entry.is_directory())
                files[name + "/"] = 0;
            else
                files[name] = entry.file_size();
        }
        return files;
    }

    void observe() {
        auto now = filesNow();
        for (const auto& [name, size] : now) {
            const auto known = files_.find(name);
            if (known == files_.end())
                recorder.add("new file " + name);
            else if (recordsEmptying && known->second != 0 && size == 0)
                recorder.add("emptied " + name);
        }
        files_ = std::move(now);
        const auto& written = exporter.writtenFiles();
        for (; written_ < written.size(); ++written_) {
            const ConvLib::WrittenFile& file = written[written_];
            recorder.add("written " + file.path +
                         (isCompressed(file.path) ? "" : ", " + std::to_string(file.bytes) + " bytes") +
                         ", " + std::to_string(file.items) + " items" + (file.failed ? ", failed" : ""));
        }
        for (; errors_ < exporter.Errors.size(); ++errors_)
            recorder.add("error \"" + exporter.Errors[errors_] + "\"");
    }

    void recordRemains() {
        recorder.add("OutputPath " + exporter.OutputPath);
        recorder.add("secondary " + exporter.printSecondary());
        if (describeMembers) {
            for (const std::string& line : describeMembers())
                recorder.add(line);
        }
        for (const auto& [time, weakSlice] : bundle->slices()) {
            const auto slice = weakSlice.lock();
            if (!slice)
                continue;
            for (const auto& [name, weakGrid] : slice->grids()) {
                const auto grid = weakGrid.lock();
                if (grid && grid->findCartesianChart(std::string(Sheaf::Grid::standardChart)))
                    recorder.add("standard chart in " + name + "@" + number(time));
            }
        }
        for (const auto& [name, size] : filesNow()) {
            if (name.back() == '/' || isCompressed(name))
                recorder.add("file " + name);
            else
                recorder.add("file " + name + " " + std::to_string(size) + " " +
                             hexadecimal(hashOf(Support::readBytes(folder / name))));
        }
    }

    std::map<std::string, int> asked_;
    std::map<std::string, std::uintmax_t> files_;
    std::size_t written_ = 0;
    std::size_t errors_ = 0;
};

/// One prepared run that has a name.
template <class Exporter>
struct Scenario {
    const char* name;
    void (*arrange)(Stage<Exporter>& stage);

    friend std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
        return out << scenario.name;
    }
};

} // namespace Record
