// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"

namespace Tidewatch {

/// The command line asks for something that makes no sense; the program ends with status 2.
class UsageError : public Anchor::Error {
public:
    using Error::Error;
};

} // namespace Tidewatch
