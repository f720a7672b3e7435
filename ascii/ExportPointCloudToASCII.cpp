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
class GridWriter {
public:
    /// `recordFile` is called each time a file has been written.
    GridWriter(ExportPointCloudToASCII& exporter, std::function<void(ConvLib::WrittenFile)> recordFile)
        : exporter_(exporter),
          recordFile_(std::move(recordFile)) {}

    /// Finds or creates the root folder of the output; false if there is none.
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

        // Progress needs a total in advance. Only names are considered, so it may exceed the number of files.
        std::uint64_t total = 0;
        grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
            if (exporter_.UseThisField(item.id.name()))
                ++total;
            return true;
        });
        std::uint64_t current = 0;
        grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
            if (exporter_.UseThisField(item.id.name())) {
                report(item.id.name(), current, total);
                exporter_.askWhetherToStop();
                if (isSelected(item.skeleton, *reference.skeleton, exporter_.RefLevel))
                    exportFragment(item);
            }
            return true;
        });
    }

private:
    void report(const std::string& fieldName, std::uint64_t& current, std::uint64_t total) {
        // False does not stop the export: hosts that want to stop it throw.
        if (exporter_.Progress)
            exporter_.Progress->progress("KxtoASCII, " + fieldName + " #", current++, total);
    }

    void reportFragment(const Sheaf::FieldFragment& item) {
        const AsciiSettings settings{exporter_.FilterField, exporter_.RefLevel, exporter_.Precision,
                                     exporter_.Append, exporter_.TileSuffix};
        exporter_.Observer()->fragmentBegins(item.id.name(),
                                             item.fragment ? item.fragment->name() : std::string(),
                                             plannedFragment(item, settings).elements);
    }

    void exportFragment(const Sheaf::FieldFragment& item) {
        if (exporter_.Observer())
            reportFragment(item);
        const FragmentPlace place = placeOf(item, exporter_.Append, exporter_.RefLevel);
        fs::path directory = root_;
        for (const std::string& folder : place.folders) {
            directory /= folder;
            if (!makeDirectory(directory))
                return;
        }
        CheckType check{item.data,
                        item.field,
                        item.representation,
                        directory / place.stem,
                        item.fragment,
                        exporter_.CellTypeFilter,
                        exporter_.FilterField,
                        exporter_.Precision,
                        exporter_.Append,
                        exporter_.TileSuffix,
                        exporter_.FlushLines(),
                        {},
                        &exporter_,
                        item.id.name()};
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
        // Hosts look for this text, including its spelling.
        exporter_.Errors.push_back("Cannot crete directory: " + directory.string());
        return false;
    }

    void record(ConvLib::WrittenFile file) {
        if (exporter_.Append) {
            ConvLib::WrittenFile& sum = appended_[file.path];
            sum = {file.path, sum.bytes + file.bytes, sum.items + file.items, sum.failed || file.failed,
                   sum.error != 0 ? sum.error : file.error};
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
    constexpr double infinity = std::numeric_limits<double>::infinity();
    CellTypeFilter.add(-infinity, infinity);
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
    // At the start of a run the base class decides what to do with its parameters. Ours only returns them as
    // text, for hosts to show, so there is nothing left to do here.
    static_cast<void>(printParameters());

    GridWriter writer(*this, [this](ConvLib::WrittenFile file) { recordWrittenFile(std::move(file)); });
    if (!writer.findRoot())
        return false;
    for (const auto& [time, weakSlice] : bundle->slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        Anchor::Console() << " Data at T=" << time;
        slice->accessSlice();
        for (const auto& [name, weakGrid] : slice->grids()) {
            if (const auto grid = weakGrid.lock())
                writer.exportGrid(time, name, *grid);
        }
    }
    return true;
}

} // namespace ExportLib
