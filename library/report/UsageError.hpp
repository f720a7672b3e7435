// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"

namespace Tidewatch {

/// Invalid options or arguments; the program then ends with status 2.
class TIDEWATCH_API UsageError : public Anchor::Error {
public:
    using Error::Error;
    UsageError(const UsageError&) = default;
    UsageError& operator=(const UsageError&) = default;
    ~UsageError() override;
};

} // namespace Tidewatch
