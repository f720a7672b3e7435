// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/InputReport.hpp"
#include "readers/source/Input.hpp"
#include "sheaf/Bundle.hpp"

#include <memory>

namespace Tidewatch {

/// Adds the content of an input to a bundle, and returns a report on it. Throws what Input::structure() and
/// fillBundle() throw; the bundle is unchanged then.
[[nodiscard]] Anchor::StrongPtr<ConvLib::InputReport> readInput(Sheaf::Bundle& bundle,
                                                                const std::shared_ptr<Input>& input);

} // namespace Tidewatch
