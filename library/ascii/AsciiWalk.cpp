// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiWalk.hpp"

#include "library/ascii/TextRounding.hpp"
#include "sheaf/TypedArray.hpp"

#include <utility>

namespace Tidewatch {

namespace {

/// Decimals of everything that is no value of a grid.
constexpr unsigned int fixedDecimals = 6;

} // namespace

/// Passes the exporter's report on to the walk.
class AsciiWalk::Reporter final : public Anchor::LoaderProgress {
public:
    explicit Reporter(AsciiWalk& walk) : walk_(walk) {}

    bool progress(const std::string& /*text*/, std::uint64_t current, std::uint64_t /*total*/) override {
        walk_.enterStop(static_cast<std::size_t>(current));
        return true;
    }

private:
    AsciiWalk& walk_;
};

AsciiWalk::AsciiWalk(RunScope scope, const Inputs& inputs, Selection& selection, AsciiSettings settings,
                     Anchor::StrongPtr<Progress> progress)
    : RunRecorder(std::move(scope), progress),
      settings_(std::move(settings)),
      progress_(std::move(progress)),
      reporter_(Anchor::makeStrong<Reporter>(*this)) {
    std::uint64_t total = 0;
    selection.forEachGrid(*inputs.bundle(),
                          [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                              if (!this->scope().admits(time) || !this->scope().admits(name))
                                  return;
                              Grid known{AsciiPlan::of(grid, selection, settings_), {}, {}, {}};
                              if (const auto report = inputs.reportOf(name, grid.origin()))
                                  known.inputStep = report->coordinateStep();
                              for (const AsciiStop& stop : known.plan.stops)
                                  total += stop.isWritten() ? stop.elements : 0;
                              grids_.try_emplace({time, name}, std::move(known));
                          });
    progress_->begin("writing", static_cast<double>(total), "values");
}

AsciiWalk::~AsciiWalk() = default;

Anchor::StrongPtr<Anchor::LoaderProgress> AsciiWalk::reporter() const {
    return reporter_;
}

const AsciiWalk::Grid* AsciiWalk::find(const ExportedGrid& exported) const {
    const auto grid = grids_.find({exported.time, exported.name});
    return grid != grids_.end() ? &grid->second : nullptr;
}

void AsciiWalk::gridBegins(double time, const std::string& name) {
    RunRecorder::gridBegins(time, name);
    leaveStop();
    const ExportedGrid& exported = grids().back();
    const auto grid = grids_.find({exported.time, exported.name});
    current_ = grid != grids_.end() ? &grid->second : nullptr;
    progress_->say("writing " + exported.name);
}

void AsciiWalk::finish(std::span<const ConvLib::WrittenFile> record) {
    leaveStop();
    RunRecorder::finish(record);
}

void AsciiWalk::enterStop(std::size_t number) {
    leaveStop();
    if (current_ == nullptr || number >= current_->plan.stops.size())
        return;
    stop_ = number;
    filesBefore_ = filesSoFar();
    const AsciiStop& stop = current_->plan.stops[number];
    const double size = stop.isWritten() ? static_cast<double>(stop.elements) : 0;
    progress_->piece(done_, size);
    done_ += size;
}

void AsciiWalk::leaveStop() {
    if (!stop_)
        return;
    const AsciiStop& stop = current_->plan.stops[*std::exchange(stop_, std::nullopt)];
    if (filesSoFar() == filesBefore_)
        return;
    // The exporter has just used the array, so it is still in memory unless the host's limit is very low.
    auto data = stop.data->available();
    if (!data)
        data = stop.data->create(false);
    double rounding = 0;
    if (const auto points = Anchor::dynamicCast<Sheaf::TypedArray<Geom::PhysicalSpace::point>>(data);
        points && stop.field == "Positions") {
        current_->survey.look(points->base_vector());
    } else if (const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data)) {
        const bool isGrid = stop.lattice != nullptr;
        rounding =
            textRounding(*array, isGrid && settings_.precision != 0 ? settings_.precision : fixedDecimals);
    }
    current_->written.push_back({&stop, filesBefore_, rounding});
}

} // namespace Tidewatch
