// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/RunWatch.hpp"

#include <string>

namespace Tidewatch {

/// An exporter whose filters a watch looks over.
template <class Exporter>
class Guarded final : public Exporter {
public:
    /// `watch` must outlive the exporter.
    explicit Guarded(RunWatch& watch) : watch_(watch) {}

    bool UseThisGrid(const std::string& name) const override {
        return watch_.useGrid(name, Exporter::UseThisGrid(name), this->writtenFiles().size());
    }
    bool UseThisTime(const double& time) const override {
        return watch_.useTime(time, Exporter::UseThisTime(time));
    }
    bool UseThisField(const std::string& name) override {
        return watch_.useField(name, Exporter::UseThisField(name), this->writtenFiles().size());
    }

private:
    RunWatch& watch_;
};

} // namespace Tidewatch
