// SPDX-License-Identifier: MIT
#pragma once

#include "arguments.h"

#include <string>

namespace zan::ctl {

struct CommandLine {
    Arguments arguments;
    // When there is nothing to run: the help or version, or the complaint.
    int exit_code = 0;
    std::string help;
    std::string complaint;

    bool runs() const { return arguments.command != nullptr; }
};

CommandLine parse_command_line(int argc, char **argv);

} // namespace zan::ctl
