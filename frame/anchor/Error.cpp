// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"

namespace Anchor {

Error::~Error() = default;
FileError::~FileError() = default;
FormatError::~FormatError() = default;
LimitError::~LimitError() = default;
ModelError::~ModelError() = default;

} // namespace Anchor
