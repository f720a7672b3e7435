// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "host/export/RunWatch.hpp"
#include "host/input/Filters.hpp"
#include "host/input/Inputs.hpp"
#include "host/report/Losses.hpp"
#include "host/report/ProgressBar.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace Tidewatch {

/// One run of an exporter, with what the command knows of it.
class ExportRun {
public:
    virtual ~ExportRun() = default;

    /// The exporter with its own settings; the common ones are set by whoever runs it.
    [[nodiscard]] virtual ConvLib::BasicConverterDefs& exporter() = 0;
    [[nodiscard]] virtual RunWatch& watch() = 0;

    /// Settings that the exporter's own print-out leaves out, in its form; empty where it tells all.
    [[nodiscard]] virtual std::string moreSettings() const = 0;

    /// After the run: why a grid that was taken up became no file.
    [[nodiscard]] virtual std::string whySkipped(const RunWatch::Visit& visit) const = 0;

    /// After the run: what the format does not carry of a grid that is in the files.
    virtual void findLosses(const RunWatch::Visit& visit, Losses& losses) const = 0;
};

/// What sets one export command apart from the others; the common course is runExport().
class ExportCommand {
public:
    /// What a run is made from; everything outlives the run.
    struct Context {
        const Inputs& inputs;
        Selection& selection;
        const Anchor::StrongPtr<ProgressBar>& bar;
    };

    virtual ~ExportCommand() = default;

    /// The command as it is typed: "pcd".
    [[nodiscard]] virtual std::string_view name() const = 0;
    /// The format in messages: "PCD".
    [[nodiscard]] virtual std::string_view format() const = 0;
    /// The extension that an output gets for the exporter's eyes where it has none: ".pcd".
    [[nodiscard]] virtual std::string_view extension() const = 0;
    /// What a written file counts, in the plural: "points".
    [[nodiscard]] virtual std::string_view unit() const = 0;

    [[nodiscard]] virtual std::unique_ptr<ExportRun> makeRun(const Context& context,
                                                             const RunScope& scope) const = 0;
};

} // namespace Tidewatch
