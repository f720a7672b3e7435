// SPDX-License-Identifier: Apache-2.0
#include "anchor/LoaderProgress.hpp"

namespace Anchor {

LoaderProgress::~LoaderProgress() = default;

} // namespace Anchor
