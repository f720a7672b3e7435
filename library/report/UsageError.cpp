// SPDX-License-Identifier: Apache-2.0
#include "library/report/UsageError.hpp"

namespace Tidewatch {

UsageError::~UsageError() = default;

} // namespace Tidewatch
