// SPDX-License-Identifier: Apache-2.0
#include "library/view/pageTemplate.hpp"

namespace Tidewatch {

std::span<const std::string_view> pageTemplate() {
    return {};
}

} // namespace Tidewatch
