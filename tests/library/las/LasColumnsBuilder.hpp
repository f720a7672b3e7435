// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/las/LasColumns.hpp"
#include "support/BundleBuilder.hpp"

#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

/// The columns of a fragment from plain values.
class LasColumnsBuilder {
public:
    template <class T>
    LasColumnsBuilder& with(const std::string& attribute, std::vector<T> values) {
        captures_.push_back({attribute, attribute, Support::held(std::move(values))});
        return *this;
    }
    [[nodiscard]] LasColumns columns() const { return LasColumns::load(captures_); }

private:
    std::vector<ExportLib::LasPlan::Capture> captures_;
};

} // namespace Tidewatch
