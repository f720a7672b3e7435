// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasReader.hpp"

#include "readers/SingleGrid.hpp"
#include "readers/las/LasArrayCreator.hpp"
#include "readers/las/LasSource.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

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
    for (std::uint64_t index = 0; index < source->fragmentCount(); ++index) {
        const auto fragment = target.grid.makeFragment(source->fragmentName(index));
        const auto creators = LasArrayCreator::makeAll(source, index);
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
