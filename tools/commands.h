// SPDX-License-Identifier: MIT
#pragma once

#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "session.h"

#include <span>

namespace zan::ctl {

// Another command is another row of the table in commands.cpp and its functions.
struct Command {
    const char *name;
    const char *summary;
    void (*define)(CLI::App &app, Arguments &arguments);
    int (*run)(Session &session, const Arguments &arguments, Output &output);
};

std::span<const Command> commands();

// Prints the daemon's "no" to a request about `subject`.
void print_refusal(const std::string &subject, const Refused &refusal);

} // namespace zan::ctl
