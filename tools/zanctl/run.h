// SPDX-License-Identifier: MIT
// What the commands have in common when they run.
#pragma once

#include "command.h"
#include "json.h"

#include <algorithm>
#include <string>

namespace zan::ctl {

// "SUBJECT: TEXT (CODE)".
std::string format_refusal(const std::string &subject, const Refusal &refusal);

// Prints why a request about `subject` failed: on standard error, or with --json as an
// object on standard output.
void print_refusal(Output &output, const Options &options, const std::string &subject,
                   const Refusal &refusal);

// Runs the action and prints a refusal.
template<typename Action>
ExitCode attempt(Output &output, const Options &options, const std::string &subject,
                 Action action) {
    try {
        action();
    } catch (const Refusal &refusal) {
        print_refusal(output, options, subject, refusal);
        return ExitCode::refused;
    }
    return ExitCode::done;
}

// Runs the action on each path, and continues after a refusal.
template<typename Action>
ExitCode for_each_path(Output &output, const PathsOptions &options, Action action) {
    ExitCode exit_code = ExitCode::done;
    for (const std::string &path : options.paths)
        exit_code = std::max(exit_code, attempt(output, options, path, [&] { action(path); }));
    return exit_code;
}

// Makes a request to the configuration tree and returns the text of its answer.
std::string ask(Session &session, zan_cfg_cmd cmd, const std::string &payload, int arg = 0);

// Throws Refusal if the text is not a number.
long to_number(const std::string &text);

// Prints the plain text, or the object with --json.
void print(Output &output, const Options &options, const std::string &plain, const Json &json);

// Prints the object with --json, else nothing.
void print_json(Output &output, const Options &options, const Json &json);

} // namespace zan::ctl
