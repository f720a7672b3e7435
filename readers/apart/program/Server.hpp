// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Channel.hpp"

namespace Tidewatch::Apart {

/// Forks children on request until the other end of the channel closes, and then ends them.
void serveLibrary(Channel channel);

} // namespace Tidewatch::Apart
