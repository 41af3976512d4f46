// SPDX-License-Identifier: MIT
#include "command_line.h"

#include "commands.h"
#include "failure.h"

#include <zan.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <sstream>
#include <unistd.h>

namespace zan::ctl {
namespace {

#define ZANCTL_TEXT(number) #number
#define ZANCTL_VERSION(major, minor, patch)                                                        \
    "zanctl " ZANCTL_TEXT(major) "." ZANCTL_TEXT(minor) "." ZANCTL_TEXT(patch)
constexpr const char *version =
    ZANCTL_VERSION(ZAN_VERSION_MAJOR, ZAN_VERSION_MINOR, ZAN_VERSION_PATCH);
#undef ZANCTL_VERSION
#undef ZANCTL_TEXT

constexpr const char *footer = R"(
Exit codes: 0 done, 1 refused, with the daemon's text on standard error,
            2 usage, 3 no daemon, or no answer from it in time.)";

// Both before and after the command, whichever comes to mind.
void add_common_options(CLI::App &app, Arguments &arguments) {
    app.add_flag("--json", arguments.json, "Print one JSON object per line");
    app.add_option("--name", arguments.name, "Module name to register under (default: zanctl-PID)")
        ->option_text("NAME")
        ->check(check_module_name);
    app.add_option("--timeout", arguments.timeout, "Longest wait for each answer (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
}

void add_commands(CLI::App &app, Arguments &arguments) {
    for (const Command &command : commands()) {
        CLI::App *sub = app.add_subcommand(command.name, command.summary);
        command.define(*sub, arguments);
        add_common_options(*sub, arguments);
        sub->callback([&arguments, &command] { arguments.command = &command; });
    }
    app.require_subcommand(1);
}

std::string without_line_end(const std::string &text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

void report(const CLI::App &app, const CLI::ParseError &error, CommandLine &result) {
    std::ostringstream help;
    std::ostringstream complaint;
    result.exit_code = app.exit(error, help, complaint) == 0 ? exit_done : exit_usage;
    result.help = without_line_end(help.str());
    result.complaint = without_line_end(complaint.str());
    result.arguments.command = nullptr;
}

} // namespace

// The name is part of a file name and travels in a field of the record.
std::string check_module_name(const std::string &name) {
    if (name.empty() || name.size() >= ZAN_NAME_SIZE)
        return "a module name has 1 to " + std::to_string(ZAN_NAME_SIZE - 1) + " characters";
    for (const char c : name)
        if (c <= ' ' || c == '/' || c == '\x7f')
            return "a module name has no blanks, control characters or slashes";
    return {};
}

CommandLine parse_command_line(int argc, char **argv) {
    CommandLine result;
    result.arguments.name = "zanctl-" + std::to_string(getpid());
    CLI::App app("Reads, writes and watches the configuration of a running zan daemon, and "
                 "sends messages to its modules.",
                 "zanctl");
    app.set_version_flag("--version", version);
    app.footer(footer);
    add_common_options(app, result.arguments);
    add_commands(app, result.arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        report(app, error, result);
    }
    return result;
}

} // namespace zan::ctl
