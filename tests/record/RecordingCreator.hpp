// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "record/Recorder.hpp"
#include "sheaf/CreativeArrayBase.hpp"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Record {

/// What one call of create() comes to: an array (or null), or an exception.
struct Outcome {
    Anchor::StrongPtr<Sheaf::MemBase> array;
    bool throws = false;
};

/// A host's creator that records every call. What create() gives is set call by call; the last goes on.
class RecordingCreator final : public Sheaf::CreativeArrayBase {
public:
    RecordingCreator(Recorder& recorder, std::string label, const std::type_info& elementType,
                     std::optional<Sheaf::Extents> extents, std::vector<Outcome> outcomes)
        : recorder_(recorder),
          label_(std::move(label)),
          elementType_(elementType),
          extents_(extents),
          outcomes_(std::move(outcomes)) {}

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool anew) const override {
        const Outcome& outcome = outcomes_[std::min(calls_, outcomes_.size() - 1)];
        ++calls_;
        recorder_.event("create " + label_ + (anew ? " anew" : "") + (outcome.throws ? " -> throws" : ""));
        if (outcome.throws)
            throw Failure("a creator that fails");
        return outcome.array;
    }
    [[nodiscard]] const std::type_info& elementType() const noexcept override {
        recorder_.event("elementType " + label_);
        return elementType_;
    }
    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override {
        recorder_.event("extents " + label_);
        return extents_;
    }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override {
        recorder_.event("available " + label_);
        return nullptr;
    }

private:
    Recorder& recorder_;
    std::string label_;
    const std::type_info& elementType_;
    std::optional<Sheaf::Extents> extents_;
    std::vector<Outcome> outcomes_;
    mutable std::size_t calls_ = 0;
};

} // namespace Record
