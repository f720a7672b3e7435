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
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// A file that an exporter wrote, before it is put in place.
struct FinishedFile {
    /// Where it lies.
    const std::filesystem::path& path;
    /// Where it is to go.
    const std::filesystem::path& target;
    /// What the exporter says of it, and the place of that in its record.
    const ConvLib::WrittenFile& record;
    std::size_t number;
    /// The last grid that was written to it.
    const ExportedGrid& grid;
};

/// One run of an exporter, with what its format knows of it.
class TIDEWATCH_API ExportRun {
public:
    virtual ~ExportRun() = default;

    /// The exporter with its own settings; the common ones are set by the caller.
    [[nodiscard]] virtual ConvLib::BasicConverterDefs& exporter() = 0;
    [[nodiscard]] virtual RunRecorder& recorder() = 0;

    /// The fields of the inputs that the exporter and this object may read.
    [[nodiscard]] virtual std::set<std::string> fieldsRead() const = 0;

    /// Settings that the exporter's own print-out leaves out, in its form; empty where it tells all.
    [[nodiscard]] virtual std::string moreSettings() const = 0;

    /// After the run: why a grid that was taken up became no file.
    [[nodiscard]] virtual std::string whySkipped(const ExportedGrid& grid) const = 0;

    /// After the run: looks at a file, as far as the format can tell what it should be like. Throws Anchor::Error
    /// where it is not what was to be written; `notes` takes what is not a fault and yet worth knowing.
    virtual void check(const FinishedFile& /*file*/, std::vector<std::string>& /*notes*/) {}

    /// After the run: what the format does not carry of a grid that is in the files; called once for each such
    /// grid.
    virtual void findLosses(const ExportedGrid& grid, Losses& losses) const = 0;
};

/// What sets one format apart from the others; the common course is that of Export.
class TIDEWATCH_API ExportFormat {
public:
    /// What a run is made from; everything outlives the run.
    struct Context {
        const Inputs& inputs;
        Selection& selection;
        const Anchor::StrongPtr<Progress>& progress;
    };

    virtual ~ExportFormat() = default;

    /// The format in messages: "PCD".
    [[nodiscard]] virtual std::string_view name() const = 0;
    /// The extension that an output gets for the exporter's eyes where it has none: ".pcd".
    [[nodiscard]] virtual std::string_view extension() const = 0;
    /// What a written file counts, in the plural: "points".
    [[nodiscard]] virtual std::string_view unit() const = 0;
    /// The same for one of the files, where the format has several kinds of them.
    [[nodiscard]] virtual std::string_view unitOf(const std::filesystem::path& /*file*/) const {
        return unit();
    }

    /// Whether OUTPUT is a folder that the exporter fills; otherwise it is a file.
    [[nodiscard]] virtual bool fillsFolder() const { return false; }
    /// Whether what is written goes behind what existing files hold; otherwise it takes their place.
    [[nodiscard]] virtual bool addsToFiles() const { return false; }

    /// What the exporter gets for its output, relative to the folder of unfinished files; empty for that folder
    /// itself. As it stands here: the name of OUTPUT, with extension() where it has none.
    [[nodiscard]] virtual std::filesystem::path exporterOutput(const RunScope& scope) const;

    /// Where a file goes that the exporter wrote at `written`, relative to the folder of unfinished files. As it
    /// stands here: OUTPUT keeps the user's own name, and others go beside it, or into it when it is a folder.
    [[nodiscard]] virtual std::filesystem::path placeOf(const RunScope& scope,
                                                        const std::filesystem::path& written) const;

    /// The files that a run will write, as far as they are known beforehand. What is in their way is found before
    /// any work; files that are not named here are looked at when they have been written. As it stands here: OUTPUT.
    [[nodiscard]] virtual std::vector<std::filesystem::path> expectedFiles(const Context& context,
                                                                           const RunScope& scope) const;

    [[nodiscard]] virtual std::unique_ptr<ExportRun> makeRun(const Context& context,
                                                             const RunScope& scope) const = 0;
};

} // namespace Tidewatch
