// SPDX-License-Identifier: MIT
#pragma once

#include "fault/faults.h"

#include <string>

namespace zan::sim {

struct Options {
    std::string tree_file;
    std::string save_file;
    std::string trace_file;
    std::string directory; // for files of modules; the default if empty
    std::string answers_file;
    int answer_seconds = 300;
    Faults faults;
    bool trace = false;
    bool allow_shell = false;
};

// Exit codes of zansim.
enum Exit { exit_ended = 0, exit_failed = 1, exit_usage = 2 };

// Reads the command line.  False if zansim must not run (--help, --version, an error):
// the text has been printed, and exit_code is set.
bool read_options(int argc, char **argv, Options &options, int &exit_code);

} // namespace zan::sim
