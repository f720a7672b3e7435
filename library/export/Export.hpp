// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/ExportFormat.hpp"
#include "library/export/ExportOptions.hpp"
#include "library/export/ExportPlan.hpp"
#include "library/export/ExportReport.hpp"
#include "library/input/Inputs.hpp"

#include <memory>

namespace Tidewatch {

/// Before inputs for an export are made: tells them what its filters select (selectInputs()), and whether the squares into
/// which they cut points are files. Where outputs stand by themselves and a failure ends none of the others, neither do
/// inputs that cannot be read. Throws UsageError for {tile} in OUTPUT without squares, and where files are added to that
/// are to be skipped.
TIDEWATCH_API void prepareInputs(InputOptions& inputs, ExportOptions& options, const ExportFormat& format);

/// An export: runs the exporter as often as the output pattern requires, each time into a folder of unfinished files,
/// checks what it wrote, and puts all files in place.
///
/// Call write() first, then, if the host accepts the report, place(). An object that is destroyed without place()
/// leaves no files behind. Where outputs stand by themselves (EachOutput), write() puts each in place and place() has
/// nothing to do. The functions exportLas(), exportPcd() and exportAscii() do all of this in one call.
class TIDEWATCH_API Export {
public:
    /// The inputs must outlive the export.
    Export(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
           Anchor::StrongPtr<Progress> progress = {});
    ~Export();
    Export(const Export&) = delete;
    Export& operator=(const Export&) = delete;

    /// Says what write() would do, as far as that is known before any array is read. Throws UsageError as write() does.
    [[nodiscard]] ExportPlan plan();

    /// Runs the exporters and checks what they wrote; nothing is put in place. Throws Anchor::Error if an input cannot
    /// be read or a file cannot be written, UsageError where grids would overwrite each other, and what the progress
    /// object throws. To be called once.
    ///
    /// Outputs that stand by themselves are put in place one by one, and what is wrong with one is a failure in the
    /// report: the first ends the run, unless the options keep it going.
    const ExportReport& write();

    /// What has been done so far, also after an exception.
    [[nodiscard]] const ExportReport& report() const noexcept;

    /// Puts the files in place. Throws Anchor::Error; then nothing has been put in place unless the message says
    /// otherwise. Does nothing after a run that was not completed.
    const ExportReport& place();

    /// Calls place() unless an exporter did not finish, there are no files, or the options refuse the losses. The report shows which.
    const ExportReport& placeUnlessRefused();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Tidewatch
