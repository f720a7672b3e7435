// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// Which times, grids and fields to export; empty lists select everything.
struct TIDEWATCH_API Filters {
    std::vector<ConvLib::BasicConverterDefs::TimeRange> times;
    std::vector<std::string> grids;
    std::vector<std::string> fields;

    /// Sets the filters of a converter.
    void applyTo(ConvLib::BasicConverterDefs& converter) const;
};

/// Applies the filters before any exporter runs, with the rules of the converter base class itself.
class TIDEWATCH_API Selection final : public ConvLib::BasicConverterDefs {
public:
    explicit Selection(const Filters& filters);
    ~Selection() override;

    /// There is nothing to convert: false.
    bool Run() override;

    /// Visits the selected grids of the selected slices in the exporters' order.
    void forEachGrid(const Sheaf::Bundle& bundle,
                     const std::function<void(double time, const std::string& name, const Sheaf::Grid& grid)>&
                         visit) const;

    /// The same as references.
    void forEachReference(
        const Sheaf::Bundle& bundle,
        const std::function<void(double time, const Anchor::StrongPtr<Sheaf::Grid>& grid)>& visit) const;
};

/// An option that names a field.
struct NamedField {
    std::string field;
    /// As in messages: "--rename 'Echo=UserData'".
    std::string option;
};

/// What is to be said of filters that match nothing in the bundles, and of options that name a field that is not there: one
/// text for each, with what there is instead. Fields are those of the grids that the other filters select.
[[nodiscard]] TIDEWATCH_API std::vector<std::string>
unmatchedFilters(const Filters& filters, std::span<const Anchor::StrongPtr<Sheaf::Bundle>> bundles,
                 std::span<const NamedField> named = {});

} // namespace Tidewatch
