// SPDX-License-Identifier: Apache-2.0
#include "host/report/summaryText.hpp"

#include "library/report/Json.hpp"
#include "library/report/Wording.hpp"

#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

std::string summaryText(const ExportReport& report, std::size_t most) {
    const std::size_t files = report.files.size();
    const std::size_t shown = files > most ? most - 1 : files;
    std::string text;
    for (std::size_t number = 0; number < shown; ++number) {
        const ExportReport::File& file = report.files[number];
        text += fmt::format("{}: {} {}, {} bytes{}\n", file.path, file.items, file.unit, file.bytes,
                            file.bytesBefore != 0 ? fmt::format(", appended to {} bytes", file.bytesBefore)
                                                  : std::string());
    }
    if (shown != files)
        text += fmt::format("... and {} more files\n", grouped(files - shown));
    return text;
}

std::string summaryJson(const std::string& command, const ExportReport& report) {
    Json document;
    document["command"] = command;
    Json& list = document["files"] = Json::array();
    for (const ExportReport::File& file : report.files) {
        Json entry;
        entry["path"] = file.path;
        entry[file.unit] = file.items;
        entry["bytes"] = file.bytes;
        if (file.grid)
            entry["grid"] = *file.grid;
        if (file.time)
            entry["time"] = *file.time;
        if (file.bytesBefore != 0)
            entry["bytesBefore"] = file.bytesBefore;
        list.push_back(std::move(entry));
    }
    Json& lost = document["losses"] = Json::array();
    for (const Loss& loss : report.losses)
        lost.push_back({{"kind", loss.kind}, {"message", loss.message}});
    document["notes"] = report.notes;
    document["errors"] = report.errors;
    if (!report.isEach)
        return jsonText(document);
    document["outputs"] = {{"all", report.outputs}, {"written", report.done}, {"existing", report.existing}};
    Json& failed = document["failures"] = Json::array();
    for (const ExportReport::Failure& failure : report.failures) {
        Json entry;
        if (!failure.name.empty())
            entry["output"] = failure.name;
        entry["message"] = failure.message;
        failed.push_back(std::move(entry));
    }
    return jsonText(document);
}

std::string planText(const ExportPlan& plan, std::size_t most) {
    const std::size_t files = plan.files.size();
    const std::size_t shown = files > most ? most - 1 : files;
    std::uint64_t bytes = 0;
    for (const ExportPlan::File& file : plan.files)
        bytes += file.bytes;
    std::string text =
        fmt::format("{} and {} would be read\n", counted(plan.inputs, "input"), memoryText(plan.inputBytes));
    for (std::size_t number = 0; number < shown; ++number) {
        const ExportPlan::File& file = plan.files[number];
        text += fmt::format("{}: at most {} {}, about {}{}\n", file.path, file.items, file.unit,
                            memoryText(file.bytes), file.isCertain ? "" : ", if its array is as stated");
    }
    if (shown != files)
        text += fmt::format("... and {} more files\n", grouped(files - shown));
    text += fmt::format("{} and about {} would be written", counted(files, "file"), memoryText(bytes));
    if (plan.existing != 0)
        text += fmt::format("; {} exist already", counted(plan.existing, "output"));
    return text + '\n';
}

std::string planJson(const std::string& command, const ExportPlan& plan) {
    Json document;
    document["command"] = command;
    document["dryRun"] = true;
    document["inputs"] = {{"files", plan.inputs}, {"bytes", plan.inputBytes}};
    Json& list = document["files"] = Json::array();
    for (const ExportPlan::File& file : plan.files)
        list.push_back({{"path", file.path},
                        {"grids", file.grids},
                        {file.unit, file.items},
                        {"bytes", file.bytes},
                        {"certain", file.isCertain}});
    Json& lost = document["losses"] = Json::array();
    for (const Loss& loss : plan.losses)
        lost.push_back({{"kind", loss.kind}, {"message", loss.message}});
    document["notes"] = plan.notes;
    document["obstacles"] = plan.obstacles;
    document["outputs"] = {{"all", plan.outputs}, {"existing", plan.existing}};
    return jsonText(document);
}

} // namespace Tidewatch
