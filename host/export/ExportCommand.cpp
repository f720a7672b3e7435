// SPDX-License-Identifier: Apache-2.0
#include "host/export/ExportCommand.hpp"

#include "host/Interruption.hpp"
#include "library/export/Export.hpp"
#include "library/report/Wording.hpp"

#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// Says of an interruption what is in place.
const ExportReport& writeEach(Export& job) {
    try {
        return job.write();
    } catch (const Interrupted&) {
        const ExportReport& done = job.report();
        throw Interrupted{fmt::format("{} of {} are in place; the same command with --skip-existing goes on",
                                      grouped(done.done + done.existing), counted(done.outputs, "output"))};
    }
}

} // namespace

int runExport(std::string command, const ExportRequest& request, ExportOptions options,
              std::unique_ptr<const ExportFormat> format) {
    Report report(request.report, std::move(command));
    if (request.printParameters)
        options.showSettings = [&](const std::string& settings) { report.messages().line(settings); };
    InputOptions read = request.inputs;
    prepareInputs(read, options, *format);
    const Inputs inputs(read, report.bar());
    const LossPolicy policy = options.losses;
    const bool isEach = options.each.isAsked();
    Export job(inputs, std::move(options), std::move(format), report.bar());
    if (request.dryRun)
        return report.printPlan(job.plan(), policy) ? 0 : 1;
    if (isEach)
        return report.printEach(writeEach(job), policy) ? 0 : 1;
    const ExportReport& done = job.write();

    report.printNotes(done.notes);
    for (const std::string& error : done.errors)
        report.messages().error(error);
    if (!done.completed) {
        report.messages().error("the export failed; nothing was put in place");
        return 1;
    }
    if (done.files.empty()) {
        report.messages().error("nothing was written: " + done.whyNothing);
        return 1;
    }
    if (!report.acceptLosses(done.losses, policy))
        return 1;
    report.printSummary(job.place());
    return done.errors.empty() ? 0 : 1;
}

int LasRequest::run() const {
    LasOptions chosen = options;
    if (plain)
        chosen.setPlain(inputs);
    return runExport("las", *this, chosen, lasFormat(chosen));
}

} // namespace Tidewatch
