// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace zan::sim {

// Makes the kernel's limits on queues wide enough for the longest record, if
// this process may.  The lines to tell: what was changed, or what does not pass.
std::vector<std::string> raise_limits();

} // namespace zan::sim
