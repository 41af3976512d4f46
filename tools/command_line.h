// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace zan::ctl {

struct Command;

// Everything a command line can say.
struct Arguments {
    const Command *command = nullptr;
    std::string name; // to register under
    double timeout = 5;
    bool json = false;
    std::string path;
    std::vector<std::string> paths;
    std::string value;
    std::string module;
    std::string text; // of a message or a command line
    bool acknowledged = false;
    std::vector<int> events;
    unsigned count = 0; // of notifications to wait for; 0: no end
    bool time = false;
};

struct CommandLine {
    Arguments arguments;
    // When there is nothing to run: the help or version, or the complaint.
    int exit_code = 0;
    std::string help;
    std::string complaint;

    bool runs() const { return arguments.command != nullptr; }
};

// Why a name cannot be a module's, or empty.
std::string check_module_name(const std::string &name);

CommandLine parse_command_line(int argc, char **argv);

} // namespace zan::ctl
