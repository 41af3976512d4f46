// SPDX-License-Identifier: MIT
#pragma once

#include "command.h"

#include <memory>
#include <string>
#include <vector>

namespace zan::ctl {

struct CommandLine {
    std::shared_ptr<GlobalOptions> global; // the command refers to it
    // Null if there is nothing to run, only help or an error to print.
    std::shared_ptr<const Invocation> invocation;
    const Command *command = nullptr;
    std::string help;
    std::string error; // of usage

    bool runs() const { return invocation != nullptr; }
};

// `words` are the arguments without the program's name, `global` the defaults.
CommandLine parse_command_line(const std::vector<std::string> &words, const GlobalOptions &global);

// Every name on the first level, groups included.
std::vector<std::string> command_names();

} // namespace zan::ctl
