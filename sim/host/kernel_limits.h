// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace zan::sim {

// Raises the kernel's limits on queues to the longest record, if permitted.  Returns
// the lines to print: what was changed, or what records are too long.
std::vector<std::string> raise_limits();

} // namespace zan::sim
