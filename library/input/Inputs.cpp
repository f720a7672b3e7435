// SPDX-License-Identifier: Apache-2.0
#include "library/input/Inputs.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "library/crs/gridSystem.hpp"
#include "readers/registerReaders.hpp"

#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace Tidewatch {

/// Shared with the readers, which outlive the inputs if somebody keeps an array's creator.
class Inputs::ExpectedFields {
public:
    void set(std::set<std::string> fields) {
        const std::lock_guard lock(mutex_);
        fields_ = std::move(fields);
    }
    [[nodiscard]] bool contains(const std::string& field) const {
        const std::lock_guard lock(mutex_);
        return !fields_ || fields_->contains(field);
    }

private:
    mutable std::mutex mutex_;
    std::optional<std::set<std::string>> fields_;
};

Inputs::Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress)
    : bundle_(Anchor::makeStrong<Sheaf::Bundle>()),
      expected_(std::make_shared<ExpectedFields>()) {
    const auto wanted =
        options.referenceSystem ? std::optional(wantedSystem(*options.referenceSystem)) : std::nullopt;
    ConvLib::ReadOptions read;
    if (options.memoryLimit) {
        Anchor::Cache::MemCache().setLimit(*options.memoryLimit);
        read.MaximumArrayBytes = memoryLimit_ = *options.memoryLimit;
    }
    read.SliceTime = options.sliceTime;
    read.FragmentPoints = options.fragmentPoints;
    read.Tick = Progress::ticker(progress);
    read.IsWanted = [expected = expected_](const std::string& field) { return expected->contains(field); };
    if (options.requiresSandbox)
        requireSandbox(true);
    std::exception_ptr first;
    for (const std::string& file : options.files) {
        if (progress)
            progress->check();
        try {
            reports_.push_back(ConvLib::readFile(*bundle_, file, read));
        } catch (const Anchor::Error& error) {
            if (failures_.empty())
                first = std::current_exception();
            failures_.emplace_back(error.what());
            continue;
        }
        if (const auto identity = Anchor::FileIdentity::of(file))
            identities_.push_back(*identity);
    }
    if (!failures_.empty() && (!options.skipsUnreadable || reports_.empty())) {
        if (failures_.size() == 1)
            std::rethrow_exception(first);
        std::string all;
        for (const std::string& failure : failures_)
            all += (all.empty() ? "" : "\n") + failure;
        throw Anchor::FormatError(all);
    }
    completeSystems(*bundle_);
    if (wanted)
        notes_ = setSystem(*bundle_, *wanted);
}

Inputs::Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle)
    : bundle_(std::move(bundle)),
      expected_(std::make_shared<ExpectedFields>()) {}

void Inputs::expectFields(std::set<std::string> fields) const {
    expected_->set(std::move(fields));
}

Anchor::StrongPtr<ConvLib::InputReport> Inputs::reportOf(const std::string& grid,
                                                         const std::string& origin) const {
    for (const auto& report : reports_) {
        if (report->grid() == grid && report->file() == origin)
            return report;
    }
    return nullptr;
}

} // namespace Tidewatch
