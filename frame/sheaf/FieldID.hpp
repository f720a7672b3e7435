// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <string>
#include <utility>

namespace Sheaf {

/// Identifies a field of a representation by its name.
class TIDEWATCH_API FieldID : public Anchor::ReferenceBase<FieldID> {
public:
    explicit FieldID(std::string name) : name_(std::move(name)) {}
    ~FieldID() override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

private:
    std::string name_;
};

} // namespace Sheaf
