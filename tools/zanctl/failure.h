// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace zan::ctl {

// What a script can tell apart.
enum ExitCode { exit_done = 0, exit_refused = 1, exit_usage = 2, exit_no_daemon = 3 };

// Ends the program with a line on standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string &text) : std::runtime_error(text), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

// The daemon's "no" to one request: a command that has several goes on.
class Refused : public Failure {
public:
    explicit Refused(const std::string &text) : Failure(exit_refused, text) {}
};

// Ends the program by a signal, once everything is cleaned up.
struct Interrupted {
    int signal;
};

} // namespace zan::ctl
