// SPDX-License-Identifier: Apache-2.0
#include "convlib/BasicConverterDefs.hpp"

#include "anchor/Error.hpp"
#include "convlib/Glob.hpp"
#include "convlib/Reader.hpp"

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>
#include <utility>

namespace ConvLib {

struct BasicConverterDefs::Own {
    bool flushLines = true;
    Anchor::StrongPtr<RunObserver> observer;
    std::function<void()> stopQuestion;
    Anchor::StrongPtr<Anchor::Workers> workers;
    // The current grid.
    double time = 0;
    std::string grid;
    std::vector<WrittenFile> writtenFiles;
    std::map<std::pair<double, std::string>, GridAdditions> additions;
    std::unique_ptr<OwnSettings> settings;
    std::vector<std::string> inputFiles;
    ReadOptions readOptions;
    std::vector<Anchor::StrongPtr<InputReport>> reports;
    // The arrays that ReadEverything has read: held here, so that the memory cache cannot drop them.
    std::vector<Anchor::StrongPtr<Anchor::Cacheable>> held;
};

namespace {

bool matchesAny(const std::vector<std::string>& globs, const std::string& name) {
    return globs.empty() || std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
               // Hosts pass names as they are, including names that contain brackets.
               return glob == name || globMatches(glob, name);
           });
}

void holdArrays(const Sheaf::Bundle& bundle, std::vector<Anchor::StrongPtr<Anchor::Cacheable>>& held) {
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice)
            continue;
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            if (!grid)
                continue;
            grid->skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
                held.push_back(stop.data->create(false));
                return true;
            });
        }
    }
}

void appendNumber(std::string& text, double number) {
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void appendList(std::string& text, std::string_view label, const std::vector<std::string>& values) {
    if (values.empty())
        return;
    text.append("\n").append(label).append(": ");
    for (const std::string& value : values)
        text.append(value).append(" ");
}

void appendAdditions(std::string& text, double time, const std::string& grid,
                     const GridAdditions& additions) {
    text.append("\nAdditions: ").append(grid).append(" ");
    appendNumber(text, time);
    for (const Sheaf::FileRecord& record : additions.records)
        text.append(" ")
            .append(record.userId)
            .append("/")
            .append(std::to_string(record.recordId))
            .append(":")
            .append(std::to_string(record.bytes.size()));
    if (additions.headerBits != 0)
        text.append(" HeaderBits:").append(std::to_string(additions.headerBits));
    if (!additions.prj.empty())
        text.append(" prj:").append(std::to_string(additions.prj.size()));
    text += " ";
}

} // namespace

BasicConverterDefs::OwnSettings::~OwnSettings() = default;
BasicConverterDefs::BasicConverterDefs() : own_(std::make_unique<Own>()) {}
BasicConverterDefs::~BasicConverterDefs() = default;

std::string BasicConverterDefs::printSecondary() {
    std::string text;
    if (!own_->flushLines)
        text += "\nFlushLines: 0 ";
    return text;
}

bool BasicConverterDefs::UseThisGrid(const std::string& name) const {
    return matchesAny(GridFilter, name);
}

bool BasicConverterDefs::UseThisTime(const double& time) const {
    return TimeFilter.empty() ||
           std::any_of(TimeFilter.begin(), TimeFilter.end(),
                       [&](const TimeRange& range) { return range.first <= time && time <= range.last; });
}

bool BasicConverterDefs::UseThisField(const std::string& name) {
    return matchesAny(FieldFilter, name);
}

void BasicConverterDefs::loadFilesIntoBundle(myReadType how) {
    const auto bundle = bundleptr.lock();
    if (!bundle)
        throw Anchor::ModelError("there is no bundle to load files into");
    for (const std::string& file : own_->inputFiles)
        own_->reports.push_back(readFile(*bundle, file, own_->readOptions));
    if (how == ReadEverything)
        holdArrays(*bundle, own_->held);
}

std::string BasicConverterDefs::printParameters() {
    std::string text = "\nOutputPath: " + OutputPath + " ";
    appendList(text, "InputFiles", own_->inputFiles);
    if (!TimeFilter.empty()) {
        text += "\nTimes: ";
        for (const TimeRange& range : TimeFilter) {
            appendNumber(text, range.first);
            text += ":";
            appendNumber(text, range.last);
            text += " ";
        }
    }
    appendList(text, "Grids", GridFilter);
    appendList(text, "Fields", FieldFilter);
    for (const auto& [key, additions] : own_->additions)
        appendAdditions(text, key.first, key.second, additions);
    if (own_->settings)
        text += own_->settings->print();
    return text;
}

bool BasicConverterDefs::FlushLines() const noexcept {
    return own_->flushLines;
}

void BasicConverterDefs::setFlushLines(bool flush) noexcept {
    own_->flushLines = flush;
}

const Anchor::StrongPtr<RunObserver>& BasicConverterDefs::Observer() const noexcept {
    return own_->observer;
}

void BasicConverterDefs::setObserver(Anchor::StrongPtr<RunObserver> observer) noexcept {
    own_->observer = std::move(observer);
}

void BasicConverterDefs::setStopQuestion(std::function<void()> mayGoOn) noexcept {
    own_->stopQuestion = std::move(mayGoOn);
}

void BasicConverterDefs::setWorkers(Anchor::StrongPtr<Anchor::Workers> workers) noexcept {
    own_->workers = std::move(workers);
}

Anchor::Workers* BasicConverterDefs::workers() const noexcept {
    return own_->workers.get();
}

void BasicConverterDefs::setAdditions(double time, const std::string& grid, GridAdditions additions) {
    if (additions.empty())
        own_->additions.erase({time, grid});
    else
        own_->additions[{time, grid}] = std::move(additions);
}

const GridAdditions& BasicConverterDefs::additions(double time, const std::string& grid) const noexcept {
    static const GridAdditions none;
    // By comparison, since a key of its own would have to be made, which may fail.
    const auto found = std::find_if(own_->additions.begin(), own_->additions.end(), [&](const auto& entry) {
        return entry.first.first == time && entry.first.second == grid;
    });
    return found != own_->additions.end() ? found->second : none;
}

const GridAdditions& BasicConverterDefs::additions() const noexcept {
    return additions(own_->time, own_->grid);
}

BasicConverterDefs::OwnSettings* BasicConverterDefs::ownSettings() const noexcept {
    return own_->settings.get();
}

void BasicConverterDefs::setOwnSettings(std::unique_ptr<OwnSettings> settings) noexcept {
    own_->settings = std::move(settings);
}

void BasicConverterDefs::askWhetherToStop() const {
    if (own_->stopQuestion)
        own_->stopQuestion();
}

void BasicConverterDefs::takeUpGrid(double time, const std::string& grid) {
    own_->time = time;
    own_->grid = grid;
    if (own_->observer)
        own_->observer->gridBegins(time, grid);
}

const std::vector<WrittenFile>& BasicConverterDefs::writtenFiles() const noexcept {
    return own_->writtenFiles;
}

void BasicConverterDefs::setInputFiles(std::vector<std::string> files, ReadOptions options) {
    own_->inputFiles = std::move(files);
    own_->readOptions = std::move(options);
}

std::span<const Anchor::StrongPtr<InputReport>> BasicConverterDefs::inputReports() const noexcept {
    return own_->reports;
}

void BasicConverterDefs::recordWrittenFile(WrittenFile file) {
    file.time = own_->time;
    file.grid = own_->grid;
    own_->writtenFiles.push_back(std::move(file));
}

} // namespace ConvLib
