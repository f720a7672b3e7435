// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasReader.hpp"

#include "anchor/printable.hpp"
#include "formats/las/layout.hpp"
#include "readers/SingleGrid.hpp"
#include "readers/las/LasArrayCreator.hpp"
#include "readers/las/LasSource.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

std::string pointFormatText(const Las::LasHeader& header) {
    const Formats::Las::PointLayout& layout = header.layout();
    std::vector<std::string_view> parts;
    for (const auto& [isThere, part] :
         {std::pair(layout.gpsTime != 0, "GPS time"), std::pair(layout.rgb != 0, "colours"),
          std::pair(layout.nearInfrared != 0, "near infrared"),
          std::pair(layout.wavePacket != 0, "waveforms"),
          std::pair(header.extraByteCount() != 0, "extra bytes")}) {
        if (isThere)
            parts.emplace_back(part);
    }
    return fmt::format("{}, {} bytes{}{}{}", header.pointFormat, header.recordLength,
                       parts.empty() ? "" : ", with ", fmt::join(parts, ", "),
                       header.compressed ? "; compressed" : "");
}

/// Empty if the header states no date.
std::string creationText(const Las::LasHeader& header) {
    using namespace std::chrono;
    if (header.creationDay == 0 && header.creationYear == 0)
        return {};
    std::string text = fmt::format("day {} of {}", header.creationDay, header.creationYear);
    const sys_days day = sys_days(year(header.creationYear) / January / 1) + days(header.creationDay - 1);
    const year_month_day date(day);
    if (date.year() == year(header.creationYear))
        text += fmt::format(", {:04}-{:02}-{:02}", int{date.year()}, unsigned{date.month()},
                            unsigned{date.day()});
    return text;
}

std::vector<ConvLib::InputReport::Fact> factsOf(const Las::LasFile& file) {
    const Las::LasHeader& header = file.header();
    std::vector<ConvLib::InputReport::Fact> facts;
    const auto add = [&](const char* name, std::string text) {
        if (!text.empty())
            facts.push_back({name, std::move(text)});
    };
    add("version", fmt::format("1.{}", header.versionMinor));
    add("point format", pointFormatText(header));
    add("created", creationText(header));
    add("software", Anchor::printable(header.generatingSoftware));
    add("system id", Anchor::printable(header.systemIdentifier));
    if (header.fileSourceId != 0)
        add("file source", std::to_string(header.fileSourceId));
    if (header.layout().gpsTime != 0)
        add("GPS time", (header.globalEncoding & Formats::Las::GlobalEncoding::adjustedGpsTime) != 0
                            ? "seconds since 6 January 1980, less 1 000 000 000"
                            : "seconds of the GPS week");
    for (const auto* const records : {&file.boundRecords(), &file.userRecords()}) {
        for (const Las::LasFile::UserRecord& record : *records)
            add("record", fmt::format("{}/{}, {} bytes{}{}", Anchor::printable(record.userId),
                                      record.recordId, record.length, record.description.empty() ? "" : ", ",
                                      Anchor::printable(record.description)));
    }
    return facts;
}

class LasReport final : public ConvLib::InputReport {
public:
    LasReport(std::shared_ptr<const LasSource> source, std::string grid)
        : source_(std::move(source)),
          grid_(std::move(grid)) {}

    [[nodiscard]] std::string file() const override { return source_->file().path(); }
    [[nodiscard]] std::string kind() const override {
        const Las::LasHeader& header = source_->file().header();
        return fmt::format("LAS 1.{}, point format {}{}", header.versionMinor, header.pointFormat,
                           header.compressed ? ", compressed" : "");
    }
    [[nodiscard]] std::string grid() const override { return grid_; }
    [[nodiscard]] std::vector<Fact> facts() const override { return factsOf(source_->file()); }
    [[nodiscard]] std::optional<Box> statedBox() const override {
        const Las::LasHeader& header = source_->file().header();
        if (header.pointCount == 0)
            return std::nullopt;
        const auto& [low, high] = std::tie(header.minimum, header.maximum);
        return Box{{low[0], low[1], low[2]}, {high[0], high[1], high[2]}};
    }
    [[nodiscard]] std::vector<std::string> notCarried() const override { return source_->notCarried(); }
    [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override {
        const auto& scale = source_->file().header().scale;
        return Geom::PhysicalSpace::vector{std::abs(scale[0]), std::abs(scale[1]), std::abs(scale[2])};
    }

private:
    std::shared_ptr<const LasSource> source_;
    std::string grid_;
};

void fillGrid(const SingleGrid& target, const std::shared_ptr<LasSource>& source) {
    std::vector<Anchor::StrongPtr<Sheaf::Field>> fields;
    for (const LasField& field : source->fields()) {
        fields.push_back(target.vertices.makeField(field.name, *field.elementType));
        if (field.encoding)
            fields.back()->setEncoding(*field.encoding);
    }
    target.grid.setStatement(source->statement());
    target.chart.setReferenceSystem(source->referenceSystem());
    const auto file = std::make_shared<LasArrayCreator::File>(source);
    for (std::uint64_t index = 0; index < source->fragmentCount(); ++index) {
        const auto fragment = target.grid.makeFragment(source->fragmentName(index));
        const auto creators = LasArrayCreator::makeAll(file);
        for (std::size_t field = 0; field < fields.size(); ++field)
            fields[field]->addFragment(fragment, creators[field]);
    }
}

} // namespace

LasReader::~LasReader() = default;

std::string LasReader::name() const {
    return "LAS/LAZ file";
}

bool LasReader::recognises(const std::string&, std::span<const std::byte> head) const {
    constexpr std::string_view signature = "LASF";
    return head.size() >= signature.size() &&
           std::equal(signature.begin(), signature.end(), head.begin(),
                      [](char a, std::byte b) { return static_cast<std::byte>(a) == b; });
}

Anchor::StrongPtr<ConvLib::InputReport> LasReader::read(Sheaf::Bundle& bundle, const std::string& path,
                                                        const ConvLib::ReadOptions& options) const {
    const auto source = std::make_shared<LasSource>(path, options);
    const std::string name =
        addSingleGrid(bundle, path, options, [&](const SingleGrid& target) { fillGrid(target, source); });
    return Anchor::makeStrong<LasReport>(source, name);
}

} // namespace Tidewatch
