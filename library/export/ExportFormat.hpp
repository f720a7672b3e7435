// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "library/Progress.hpp"
#include "library/export/RunRecorder.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/report/Losses.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// A file that an exporter wrote, before it is put in place.
struct FinishedFile {
    /// Where it is now.
    const std::filesystem::path& path;
    /// Where it is to go.
    const std::filesystem::path& target;
    /// The exporter's record of it, and the index of that record.
    const ConvLib::WrittenFile& record;
    std::size_t number;
    /// The last grid that was written to it.
    const ExportedGrid& grid;
};

/// A file that a run will write.
struct ExpectedFile {
    std::filesystem::path path;
    /// The grid that goes into it.
    double time;
    std::string grid;
    /// The most items that the grid gives it, and about how many bytes.
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;
    /// Whether it will be there in any case; else only if its array turns out to be what was stated.
    bool isCertain = true;
};

/// The format-specific part of one run of an exporter.
class TIDEWATCH_API ExportRun {
public:
    virtual ~ExportRun() = default;

    /// The exporter with its own settings; the common ones are set by the caller.
    [[nodiscard]] virtual ConvLib::BasicConverterDefs& exporter() = 0;
    [[nodiscard]] virtual RunRecorder& recorder() = 0;

    /// The fields of the inputs that the exporter and this object may read.
    [[nodiscard]] virtual std::set<std::string> fieldsRead() const = 0;

    /// Settings that printParameters() and printSecondary() leave out, in their form; empty if there are none.
    [[nodiscard]] virtual std::string moreSettings() const = 0;

    /// After the run: why a grid that was started got no file.
    [[nodiscard]] virtual std::string whySkipped(const ExportedGrid& grid) const = 0;

    /// After the run: how many items a grid's files hold if everything that the exporter took up is in them; nullopt if
    /// that depends on the values.
    [[nodiscard]] virtual std::optional<std::uint64_t> itemsOf(const ExportedGrid& grid) const = 0;

    /// After the run: checks a file, as far as the format knows its expected content. Throws Anchor::Error if it is
    /// wrong; adds remarks that are not errors to `notes`.
    virtual void check(const FinishedFile& /*file*/, std::vector<std::string>& /*notes*/) {}

    /// After the run: adds what the format drops or changes of a grid; called once for each grid in the files.
    virtual void findLosses(const ExportedGrid& grid, Losses& losses) const = 0;
};

/// What distinguishes one format from the others; Export does everything that is common.
class TIDEWATCH_API ExportFormat {
public:
    /// The arguments of a run; everything outlives the run.
    struct Context {
        const Inputs& inputs;
        Selection& selection;
        const Anchor::StrongPtr<Progress>& progress;
    };

    virtual ~ExportFormat() = default;

    /// The format in messages: "PCD".
    [[nodiscard]] virtual std::string_view name() const = 0;
    /// The extension that is appended to the exporter's output path if it has none: ".pcd".
    [[nodiscard]] virtual std::string_view extension() const = 0;
    /// The unit of a written file's items, in the plural: "points".
    [[nodiscard]] virtual std::string_view unit() const = 0;
    /// The same for one of the files, for formats with several kinds of files.
    [[nodiscard]] virtual std::string_view unitOf(const std::filesystem::path& /*file*/) const {
        return unit();
    }

    /// Whether OUTPUT is a folder that the exporter fills; otherwise it is a file.
    [[nodiscard]] virtual bool fillsFolder() const { return false; }
    /// Whether the output is appended to existing files; otherwise it replaces them.
    [[nodiscard]] virtual bool addsToFiles() const { return false; }

    /// Fields that options of the format name, and that some grid should have.
    [[nodiscard]] virtual std::vector<NamedField> namedFields() const { return {}; }

    /// Whether only cells of some types are written with their values.
    [[nodiscard]] virtual bool choosesByCellTypes() const { return false; }

    /// The exporter's output path, relative to the folder of unfinished files; empty for that folder itself. By default
    /// the name of OUTPUT, with extension() if it has none.
    [[nodiscard]] virtual std::filesystem::path exporterOutput(const RunScope& scope) const;

    /// The destination of a file that the exporter wrote at `written`, which is relative to the folder of unfinished
    /// files. By default OUTPUT keeps the user's own name, and other files go beside it, or into it if it is a folder.
    [[nodiscard]] virtual std::filesystem::path placeOf(const RunScope& scope,
                                                        const std::filesystem::path& written) const;

    /// The files that a run will write, as far as they are known in advance, in the order of the exporter; a file that
    /// several grids go to, once for each. Obstacles at their paths are detected before any work, and so are grids that
    /// would overwrite each other; other files are checked when they have been written.
    [[nodiscard]] virtual std::vector<ExpectedFile> expectedFiles(const Context& context,
                                                                  const RunScope& scope) const = 0;

    /// Throws UsageError where the field filters leave out the positions, without which formats of points have nothing to
    /// write.
    static void requirePositions(Selection& selection);

    /// How many bytes an exporter has in memory together in a run, beside the arrays of a fragment.
    [[nodiscard]] virtual std::uint64_t bytesInMemory(const Context& /*context*/,
                                                      const RunScope& /*scope*/) const {
        return 0;
    }

    [[nodiscard]] virtual std::unique_ptr<ExportRun> makeRun(const Context& context,
                                                             const RunScope& scope) const = 0;
};

} // namespace Tidewatch
