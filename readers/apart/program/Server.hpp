// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Channel.hpp"

namespace Tidewatch::Apart {

/// Forks children over a channel until its other end is gone, and then ends them.
void serveLibrary(Channel channel);

} // namespace Tidewatch::Apart
