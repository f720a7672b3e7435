// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// Which times, grids and fields an export is to take; empty lists take everything.
struct TIDEWATCH_API Filters {
    std::vector<ConvLib::BasicConverterDefs::TimeRange> times;
    std::vector<std::string> grids;
    std::vector<std::string> fields;

    /// Sets the filters of a converter.
    void applyTo(ConvLib::BasicConverterDefs& converter) const;
};

/// Answers what the filters choose, in the words of the converter base itself, before any exporter runs.
class TIDEWATCH_API Selection final : public ConvLib::BasicConverterDefs {
public:
    explicit Selection(const Filters& filters);
    ~Selection() override;

    /// There is nothing to convert: false.
    bool Run() override;

    /// Visits the chosen grids of the chosen slices in the order of exporters.
    void forEachGrid(const Sheaf::Bundle& bundle,
                     const std::function<void(double time, const std::string& name, const Sheaf::Grid& grid)>&
                         visit) const;
};

} // namespace Tidewatch
