// SPDX-License-Identifier: MIT
// Command lines for the daemon to carry out.
#pragma once

#include "msg/request.h"

namespace zan {

// The whole field travels, however short the command line.
inline constexpr int command_line_size = ZAN_LONGEST_COMMAND_LINE + 1;

constexpr Command control_command(const char *function, const char *label,
                                  std::span<const ReportLine> report) {
    return {.function = function,
            .cmd = ZAN_CONTROL_COMMAND_LINE,
            .label = label,
            .type = ZAN_CLASS_CONTROL,
            .destination = ZAN_MODULE_CORE,
            .timed = true,
            .report = report};
}

} // namespace zan
