// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/InputReport.hpp"
#include "readers/source/Input.hpp"
#include "sheaf/Bundle.hpp"

#include <memory>

namespace Tidewatch {

/// Adds what an input holds to a bundle, and gives what there is to be said of it. Throws what Input::structure()
/// and fillBundle() throw; the bundle is then as it was before.
[[nodiscard]] Anchor::StrongPtr<ConvLib::InputReport> readInput(Sheaf::Bundle& bundle,
                                                                const std::shared_ptr<Input>& input);

} // namespace Tidewatch
