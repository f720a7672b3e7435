// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Channel.hpp"
#include "readers/apart/program/Lockdown.hpp"
#include "readers/source/Source.hpp"

#include <functional>

namespace Tidewatch::Apart {

/// Serves one file over a channel until the other end closes: receives it, locks the process with `lock` and
/// answers requests. Nothing of the file is read before the lock.
void serveFile(Channel& channel, const SourceModule& module,
               const std::function<Lockdown::InForce(std::uint64_t most)>& lock);

} // namespace Tidewatch::Apart
