// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace zan::ctl {

// Part of the interface: scripts test them.
enum class ExitCode { done = 0, refused = 1, usage = 2, no_daemon = 3, no_answer = 4 };

// Ends the program with a message and this exit code.
class Error : public std::runtime_error {
public:
    Error(ExitCode exit_code, const std::string &text)
        : std::runtime_error(text), exit_code_(exit_code) {}
    ExitCode exit_code() const { return exit_code_; }

private:
    ExitCode exit_code_;
};

// One request failed; a command that makes several goes on with the next.
class Refusal : public Error {
public:
    // `code` is the negative result of the request, if there is one.  `subject` is what
    // the request was about, unless that is what the command was given.
    explicit Refusal(const std::string &text, std::optional<int> code = {},
                     std::string subject = {})
        : Error(ExitCode::refused, text), code_(code), subject_(std::move(subject)) {}
    std::optional<int> code() const { return code_; }
    const std::string &subject() const { return subject_; }

private:
    std::optional<int> code_;
    std::string subject_;
};

// Ends the program by this signal, after cleaning up.
struct Interrupted {
    int signal;
};

} // namespace zan::ctl
