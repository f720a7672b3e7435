// SPDX-License-Identifier: Apache-2.0
#include "ascii/ExportPointCloudToASCII.hpp"

#include "anchor/Console.hpp"
#include "ascii/CheckType.hpp"
#include "ascii/TextFile.hpp"
#include "ascii/createDirectory.hpp"
#include "ascii/fragmentRules.hpp"
#include "convlib/ExporterRegistration.hpp"
#include "convlib/ReferenceVertices.hpp"
#include "sheaf/Grid.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <utility>

namespace ExportLib {

namespace {

const ConvLib::ExporterRegistration registration;

namespace fs = std::filesystem;

bool isDirectory(const fs::path& path) {
    return fs::status(path).type() == fs::file_type::directory;
}

/// One run over the bundle.
class Walk {
public:
    /// `recordFile` is called each time that a file has been written.
    Walk(ExportPointCloudToASCII& exporter, std::function<void(ConvLib::WrittenFile)> recordFile)
        : exporter_(exporter),
          recordFile_(std::move(recordFile)) {}

    /// Finds or makes the folder that everything goes to; false when there is none.
    bool findRoot() {
        root_ = exporter_.OutputPath;
        if (!isDirectory(root_)) {
            exporter_.OutputPath = std::string(".");
            root_ = exporter_.OutputPath;
            if (!isDirectory(root_)) {
                exporter_.Errors.push_back("RootDir is not directory. Have: " + exporter_.OutputPath);
                return false;
            }
        }
        return makeDirectory(root_);
    }

    void exportGrid(double time, const std::string& name, const Sheaf::Grid& grid) {
        if (!exporter_.UseThisGrid(name))
            return;
        exporter_.takeUpGrid(time, name);
        const ConvLib::ReferenceVertices reference = ConvLib::findReferenceVertices(grid);
        if (!reference.representation)
            return;

        // Progress wants a total beforehand. Only names are looked at, so it may exceed the number of files.
        std::uint64_t total = 0;
        grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
            if (exporter_.UseThisField(stop.id.name()))
                ++total;
            return true;
        });
        std::uint64_t current = 0;
        grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
            if (exporter_.UseThisField(stop.id.name())) {
                report(stop.id.name(), current, total);
                exporter_.askWhetherToStop();
                if (isSelected(stop.skeleton, *reference.skeleton, exporter_.RefLevel))
                    exportFragment(stop);
            }
            return true;
        });
    }

private:
    void report(const std::string& fieldName, std::uint64_t& current, std::uint64_t total) {
        // A refusal does not stop the export: hosts that want to stop it throw.
        if (exporter_.Progress)
            exporter_.Progress->progress("KxtoASCII, " + fieldName + " #", current++, total);
    }

    void tellOf(const Sheaf::FieldFragment& stop) {
        const AsciiSettings settings{exporter_.FilterField, exporter_.RefLevel, exporter_.Precision,
                                     exporter_.Append, exporter_.TileSuffix};
        exporter_.Observer()->fragmentBegins(stop.id.name(),
                                             stop.fragment ? stop.fragment->name() : std::string(),
                                             plannedFragment(stop, settings).elements);
    }

    void exportFragment(const Sheaf::FieldFragment& stop) {
        if (exporter_.Observer())
            tellOf(stop);
        const FragmentPlace place = placeOf(stop, exporter_.Append, exporter_.RefLevel);
        fs::path directory = root_;
        for (const std::string& folder : place.folders) {
            directory /= folder;
            if (!makeDirectory(directory))
                return;
        }
        CheckType check{stop.data,
                        stop.field,
                        stop.representation,
                        directory / place.stem,
                        stop.fragment,
                        exporter_.CellTypeFilter,
                        exporter_.FilterField,
                        exporter_.Precision,
                        exporter_.Append,
                        exporter_.TileSuffix,
                        exporter_.FlushLines(),
                        {},
                        &exporter_,
                        stop.id.name()};
        dispatch(check);
        if (!check.written)
            return;
        const fs::path file = check.written->path;
        record(*std::move(check.written));
        writeReferenceSystem(file);
    }

    /// Beside a grid, where the host has a text for it. A file that several grids are added to has none: it stays one
    /// text for a file that was there before.
    void writeReferenceSystem(fs::path grid) {
        const std::string& text = exporter_.additions().prj;
        if (text.empty() || exporter_.Append || grid.extension() != ".grd")
            return;
        TextFile file(grid.replace_extension(".prj"), false, exporter_.FlushLines());
        file.lines().text(text);
        record(file.close(1));
    }

    bool makeDirectory(const fs::path& directory) {
        if (createDirectory(directory))
            return true;
        // The wording is what hosts look for, its spelling included.
        exporter_.Errors.push_back("Cannot crete directory: " + directory.string());
        return false;
    }

    void record(ConvLib::WrittenFile file) {
        if (exporter_.Append) {
            ConvLib::WrittenFile& sum = appended_[file.path];
            sum = {file.path, sum.bytes + file.bytes, sum.items + file.items, sum.failed || file.failed};
            file = sum;
        }
        recordFile_(std::move(file));
    }

    ExportPointCloudToASCII& exporter_;
    std::function<void(ConvLib::WrittenFile)> recordFile_;
    fs::path root_;
    std::map<std::string, ConvLib::WrittenFile> appended_;
};

} // namespace

ExportPointCloudToASCII::ExportPointCloudToASCII() {
    constexpr double most = std::numeric_limits<double>::infinity();
    CellTypeFilter.add(-most, most);
}

ExportPointCloudToASCII::~ExportPointCloudToASCII() = default;

std::string ExportPointCloudToASCII::printSecondary() {
    std::string text;
    text.append("\nFilterField: ").append(FilterField).append(" ");
    text.append("\nRefLevel: ").append(std::to_string(RefLevel)).append(" ");
    if (Precision != 0)
        text.append("\nPrecision: ").append(std::to_string(Precision)).append(" ");
    if (Append)
        text.append("\nAppend modus ");
    return text;
}

bool ExportPointCloudToASCII::Run() {
    const auto bundle = bundleptr.lock();
    if (!bundle) {
        Errors.emplace_back("bundleptr is null");
        return false;
    }
    // The base decides what becomes of its parameters at the start of a run. This one hands them over as text
    // for hosts to show, so there is nothing left to do with it here.
    static_cast<void>(printParameters());

    Walk walk(*this, [this](ConvLib::WrittenFile file) { recordWrittenFile(std::move(file)); });
    if (!walk.findRoot())
        return false;
    for (const auto& [time, weakSlice] : bundle->slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        Anchor::Console() << " Data at T=" << time;
        slice->accessSlice();
        for (const auto& [name, weakGrid] : slice->grids()) {
            if (const auto grid = weakGrid.lock())
                walk.exportGrid(time, name, *grid);
        }
    }
    return true;
}

} // namespace ExportLib
