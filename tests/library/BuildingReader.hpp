// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"
#include "library/input/Inputs.hpp"
#include "support/TemporaryFolder.hpp"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

/// What a test says of its input; the input became the grid "stepped".
class BuiltReport final : public ConvLib::InputReport {
public:
    BuiltReport(std::string file, std::vector<std::string> lost)
        : file_(std::move(file)),
          lost_(std::move(lost)) {}
    std::string file() const override { return file_; }
    std::string kind() const override { return "built"; }
    std::string grid() const override { return "stepped"; }
    std::vector<std::string> notCarried() const override { return lost_; }
    std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override {
        return Geom::PhysicalSpace::vector{0.25, 0.5, 1};
    }

private:
    std::string file_;
    std::vector<std::string> lost_;
};

/// Fills a bundle by a function of the test's, whatever the file holds.
class BuildingReader final : public ConvLib::Reader {
public:
    using Build = std::function<void(Sheaf::Bundle&, const std::string&)>;
    explicit BuildingReader(Build build, std::vector<std::string> lost = {})
        : build_(std::move(build)),
          lost_(std::move(lost)) {}
    std::string name() const override { return "builder of a test"; }
    bool recognises(const std::string&, std::span<const std::byte>) const override { return true; }
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions&) const override {
        build_(bundle, path);
        return Anchor::makeStrong<BuiltReport>(path, lost_);
    }

private:
    Build build_;
    std::vector<std::string> lost_;
};

/// Registers a BuildingReader for as long as it lives.
class ScopedReader {
public:
    explicit ScopedReader(BuildingReader::Build build, std::vector<std::string> lost = {}) {
        ConvLib::registerReader(Anchor::makeStrong<BuildingReader>(std::move(build), std::move(lost)));
    }
    ~ScopedReader() { ConvLib::unregisterReader("builder of a test"); }
    ScopedReader(const ScopedReader&) = delete;
    ScopedReader& operator=(const ScopedReader&) = delete;
};

/// Inputs that a function builds; a file for them is made in the folder.
inline Inputs readBuilt(const Support::TemporaryFolder& folder, BuildingReader::Build build) {
    Support::writeBytes(folder / "input", "x");
    const ScopedReader reader(std::move(build));
    InputOptions options;
    options.files = {folder / "input"};
    return Inputs(options);
}

} // namespace Tidewatch
