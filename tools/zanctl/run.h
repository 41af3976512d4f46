// SPDX-License-Identifier: MIT
// What the commands have in common when they run.
#pragma once

#include "commands.h"
#include "failure.h"
#include "json.h"

#include <algorithm>
#include <string>

namespace zan::ctl {

// Prints the daemon's "no" to a request about `subject`.
void print_refusal(const std::string &subject, const Refused &refusal);

// Runs the action; when the daemon refuses it, says so about `subject`.
template<typename Action> int attempt(const std::string &subject, Action action) {
    try {
        action();
    } catch (const Refused &refusal) {
        print_refusal(subject, refusal);
        return exit_refused;
    }
    return exit_done;
}

// Runs the action on each path, and goes on after a refusal.
template<typename Action> int for_each_path(const Arguments &arguments, Action action) {
    int exit_code = exit_done;
    for (const std::string &path : arguments.paths)
        exit_code = std::max(exit_code, attempt(path, [&] { action(path); }));
    return exit_code;
}

// A request to the configuration tree, and its answer's text.
std::string ask(Session &session, zan_cfg_cmd cmd, const std::string &payload, int arg = 0);

// Throws Refused when the text is none.
long to_number(const std::string &text);

// One form or the other, as the caller has asked for.
void print(Output &output, const Arguments &arguments, const std::string &plain, const Json &json);

// The object alone, and nothing in plain form.
void print_json(Output &output, const Arguments &arguments, const Json &json);

} // namespace zan::ctl
