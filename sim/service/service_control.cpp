// SPDX-License-Identifier: MIT
#include "state/daemon.h"

namespace zan::sim {

// Kept for who wants to look at it, never executed: it was written for a router.
Result<std::string> note_command_line(Daemon &daemon, const Request &request) {
    daemon.statistics.command_lines.note(request.text());
    return std::string();
}

} // namespace zan::sim
