// SPDX-License-Identifier: Apache-2.0
//
// A page of a large LAZ file (100 million points, or the number given) beside reading the same file: the time of both, and
// the memory that the page takes. Usage: bench-view [POINTS] [FOLDER]
#include "anchor/Cache.hpp"
#include "anchor/Console.hpp"
#include "bench/Ratio.hpp"
#include "bench/peakMemory.hpp"
#include "library/input/freedArrays.hpp"
#include "library/las/exportLas.hpp"
#include "library/sample/SampleSurvey.hpp"
#include "library/view/ViewFile.hpp"
#include "library/view/viewPage.hpp"
#include "readers/registerReaders.hpp"
#include "sheaf/MemBase.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace {

using namespace Tidewatch;

/// The full cloud of one time of the sample survey.
void writeSurvey(const std::string& path, std::uint64_t points) {
    SampleOptions sample;
    sample.points = points;
    LasOptions options;
    options.filters.times = {{0, 0}};
    options.filters.grids = {"coast"};
    options.output = OutputPattern(path);
    exportLas(Inputs(makeSampleSurvey(sample)), options);
}

Inputs open(const std::string& path) {
    InputOptions options;
    options.files = {path};
    options.memoryLimit = Anchor::Cache::defaultLimit;
    return Inputs(options);
}

/// Makes every array once.
void readAll(const std::string& path) {
    const Inputs inputs = open(path);
    for (const auto& [time, weakSlice] : inputs.bundle()->slices()) {
        const auto slice = weakSlice.lock();
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            const auto skeleton = grid->skeletons().findVertices(-1);
            const auto all = skeleton->representations()(grid->findCartesianChart({}));
            for (const auto& fragment : all->Positions()->getFragmentIDs()) {
                all->forEachField([&](const Sheaf::FieldID&, const Sheaf::Field& field) {
                    static_cast<void>(field.getCreator(fragment)->create(false));
                    return true;
                });
            }
        }
    }
}

void makePage(const std::string& path, const std::string& page) {
    const Inputs inputs = open(path);
    ViewPageOptions options;
    options.title = "benchmark";
    Progress progress;
    const ViewPage made = makeViewPage(inputs, options, progress);
    static_cast<void>(ViewFile(page, true, {}).place(made.text, made.points));
}

template <class Work>
double secondsOf(Work&& work) {
    const auto begin = std::chrono::steady_clock::now();
    std::forward<Work>(work)();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void measure(const std::string& survey, const std::string& page, std::uint64_t points) {
    Bench::peakMemoryOf([&] { writeSurvey(survey, points); });
    fmt::print("{} points in {:.0f} MiB\n", points, Bench::mebibytes(std::filesystem::file_size(survey)));
    std::uint64_t reading = 0;
    std::uint64_t making = 0;
    const double readSeconds = secondsOf([&] { reading = Bench::peakMemoryOf([&] { readAll(survey); }); });
    const double pageSeconds =
        secondsOf([&] { making = Bench::peakMemoryOf([&] { makePage(survey, page); }); });
    fmt::print("  reading everything: {:.1f} s, peak memory {:.0f} MiB\n", readSeconds,
               Bench::mebibytes(reading));
    fmt::print("  a page of {:.1f} MB: {:.1f} s, peak memory {:.0f} MiB\n",
               static_cast<double>(std::filesystem::file_size(page)) / 1e6, pageSeconds,
               Bench::mebibytes(making));
    Bench::printAtMost("time of the page / reading", pageSeconds / readSeconds, 1.1);
    // The limit is one of arrays, not of the program itself.
    Bench::printAtMost("peak memory of the page beyond the memory limit, MiB",
                       Bench::mebibytes(making) - Bench::mebibytes(Anchor::Cache::defaultLimit), 64.0);
}

} // namespace

int main(int argc, char** argv) {
    const std::uint64_t points = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100'000'000;
    const std::filesystem::path folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
    const std::string stem = (folder / fmt::format("tidewatch-view-{}", ::getpid())).string();
    // As the program does.
    giveFreedArraysBack();
    registerReaders();
    // The exporter's own messages.
    Anchor::Console::setSink([](std::string_view) {});
    int status = 0;
    try {
        measure(stem + ".laz", stem + ".html", points);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        status = 1;
    }
    std::filesystem::remove(stem + ".laz");
    std::filesystem::remove(stem + ".html");
    return status;
}
