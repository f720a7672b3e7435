// SPDX-License-Identifier: Apache-2.0
#include "convlib/RunObserver.hpp"

namespace ConvLib {

RunObserver::~RunObserver() = default;
void RunObserver::gridBegins(double, const std::string&) {}
void RunObserver::fragmentBegins(std::string_view, std::string_view, std::uint64_t) {}
void RunObserver::fileBegins(const std::string&, const std::array<StoredAxis, 3>&) {}
void RunObserver::positionsWritten(std::span<const Geom::PhysicalSpace::point>) {}
void RunObserver::valuesChanged(const ChangedValues&) {}

} // namespace ConvLib
