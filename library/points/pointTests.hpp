// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/points/FragmentMask.hpp"
#include "library/points/PointChoice.hpp"
#include "sheaf/Representation.hpp"

#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// The tests that points of one fragment have to pass, each with an array that is created when the test first
/// runs.
///
/// `where` names the grid in errors. `mayGoOn`, unless empty, is called every 65 536 points. Throws
/// Anchor::ModelError if a required field is missing for the fragment, does not contain integers, or has
/// another number of values than there are points.
[[nodiscard]] std::vector<FragmentMask::Test> pointTests(const PointChoice& choice,
                                                         const Sheaf::Representation& representation,
                                                         const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                                         const std::string& where,
                                                         const std::function<void()>& mayGoOn);

/// The number of elements that a creator states; 0 if it states none.
[[nodiscard]] std::uint64_t statedElements(const Sheaf::CreativeArrayBase& data);

} // namespace Tidewatch
