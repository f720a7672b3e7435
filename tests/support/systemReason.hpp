// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <system_error>

namespace Support {

/// The system's own words for an error number, in the language of the locale that the tests run under.
inline std::string systemReason(int number) {
    return std::generic_category().message(number);
}

} // namespace Support
