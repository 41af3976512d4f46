// SPDX-License-Identifier: MIT
#include "options.h"

#include <zan.h>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace zan::ctl {

std::string check_path(const std::string &path) {
    if (path.empty() || path.size() >= ZAN_PATH_SIZE)
        return "a path has 1 to " + std::to_string(ZAN_PATH_SIZE - 1) + " characters";
    if (std::any_of(path.begin(), path.end(),
                    [](unsigned char c) { return c <= ' ' || c == 0x7f; }))
        return "a path has no spaces or control characters";
    return {};
}

// The name is part of a file name and of a path, and travels in a field of the record.
std::string check_module_name(const std::string &name) {
    if (name.empty() || name.size() >= ZAN_NAME_SIZE)
        return "a module name has 1 to " + std::to_string(ZAN_NAME_SIZE - 1) + " characters";
    for (const char c : name)
        if (c <= ' ' || c == '/' || c == '\x7f')
            return "a module name has no spaces, control characters or slashes";
    return {};
}

std::string check_text(const std::string &text) {
    if (text.size() > ZAN_LONGEST_MESSAGE)
        return "a message has at most " + std::to_string(ZAN_LONGEST_MESSAGE) + " characters";
    return {};
}

std::string check_command_line(const std::string &text) {
    if (text.empty() || text.size() > ZAN_LONGEST_COMMAND_LINE)
        return "a command line has 1 to " + std::to_string(ZAN_LONGEST_COMMAND_LINE) +
               " characters";
    return {};
}

std::string check_file_name(const std::string &name) {
    if (name.empty() || name.size() > ZAN_LONGEST_FILE_NAME)
        return "a file name has 1 to " + std::to_string(ZAN_LONGEST_FILE_NAME) + " characters";
    return {};
}

void add_note(CLI::App &app, const std::string &note) {
    app.footer(note + "\n\n" + app.get_footer());
}

CLI::Option *add_paths(CLI::App &app, std::vector<std::string> &paths) {
    return app.add_option("PATH", paths, "Paths, such as /sys/user:1/name")
        ->option_text("...")
        ->check(check_path);
}

CLI::Option *add_path(CLI::App &app, std::string &path) {
    return app.add_option("PATH", path, "A path, such as /sys/user:1/name")
        ->option_text(" ")
        ->required()
        ->check(check_path);
}

CLI::Option *add_module(CLI::App &app, std::string &module) {
    return app.add_option("MODULE", module, "The name it is registered under")
        ->option_text(" ")
        ->required()
        ->check(check_module_name);
}

CLI::Option *add_agent_option(CLI::App &app, bool &agent) {
    return app.add_flag("--agent", agent, "Use the TCP link of a mesh agent");
}

void add_arrival_options(CLI::App &app, ArrivalOptions &options) {
    app.add_option("--event", options.events, "Event code to watch; may be repeated")
        ->option_text("CODE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--count", options.count, "Exit after N lines")
        ->option_text("N")
        ->check(CLI::PositiveNumber);
    app.add_flag("--time", options.time, "Print the time of arrival");
}

void add_confirmation(CLI::App &app, Confirmation confirmation, std::function<void()> check) {
    const bool always = confirmation == Confirmation::always;
    const std::string description =
        always ? "Confirm; required, in scripts too" : "Confirm; required at a terminal";
    CLI::Option *const yes = app.add_flag("--yes", description);
    app.parse_complete_callback([yes, always, check = std::move(check)] {
        check();
        if (yes->count() > 0)
            return;
        if (always)
            throw CLI::ValidationError("--yes", "required to confirm: this resets or restarts the "
                                                "device");
        if (isatty(STDIN_FILENO) != 0)
            throw CLI::ValidationError("--yes", "required at a terminal: this changes the device");
    });
}

} // namespace zan::ctl
