// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Channel.hpp"
#include "readers/apart/program/Lockdown.hpp"
#include "readers/source/Source.hpp"

#include <functional>

namespace Tidewatch::Apart {

/// Serves one file over a channel until its other end is gone: takes it, locks the process by `lock` and answers
/// what is asked about it. The process reads nothing of the file before.
void serveFile(Channel& channel, const SourceModule& module,
               const std::function<Lockdown::InForce(std::uint64_t most)>& lock);

} // namespace Tidewatch::Apart
