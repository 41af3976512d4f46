// SPDX-License-Identifier: MIT
#include "request/services.h"
#include "state/daemon.h"

#include <array>

namespace zan::sim {

namespace {

// Remembered for inspection but never executed: it was written for a router.
Result<std::string> note_command_line(Daemon &daemon, const Request &request) {
    daemon.statistics.command_lines.note(request.text());
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CONTROL, ZAN_CONTROL_COMMAND_LINE, "command-line", text, none,
            note_command_line, Reply::none},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
