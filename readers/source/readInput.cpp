// SPDX-License-Identifier: Apache-2.0
#include "readers/source/readInput.hpp"

#include "readers/source/fillBundle.hpp"

#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

namespace {

class Report final : public ConvLib::InputReport {
public:
    Report(std::shared_ptr<const Input> input, std::string kind, std::string grid)
        : input_(std::move(input)),
          kind_(std::move(kind)),
          grid_(std::move(grid)) {}

    [[nodiscard]] std::string file() const override { return input_->path(); }
    [[nodiscard]] std::string kind() const override { return kind_; }
    [[nodiscard]] std::string grid() const override { return grid_; }
    [[nodiscard]] std::vector<std::string> notCarried() const override { return input_->notCarried(); }
    [[nodiscard]] std::vector<std::string> lostByCellTypes() const override {
        return input_->lostByCellTypes();
    }
    [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override { return {}; }

private:
    std::shared_ptr<const Input> input_;
    std::string kind_;
    std::string grid_;
};

} // namespace

Anchor::StrongPtr<ConvLib::InputReport> readInput(Sheaf::Bundle& bundle,
                                                  const std::shared_ptr<Input>& input) {
    Structure structure = input->structure();
    std::string grid = fillBundle(bundle, structure, input);
    return Anchor::makeStrong<Report>(input, std::move(structure.kind), std::move(grid));
}

} // namespace Tidewatch
