// SPDX-License-Identifier: MIT
#include "command_line.h"

#include "commands.h"
#include "failure.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <sstream>
#include <unistd.h>

namespace zan::ctl {
namespace {

constexpr const char *footer =
    "Exit codes: 0 done, 1 refused, with the daemon's text on standard error, or no match,\n"
    "            2 usage, 3 no daemon, or no answer from it in time.";

// Both before and after the command, whichever comes to mind.
void add_output_options(CLI::App &app, Arguments &arguments) {
    app.add_flag("--json", arguments.json, "Print one JSON object per line");
}

void add_daemon_options(CLI::App &app, Arguments &arguments) {
    app.add_option("--name", arguments.name, "Module name to register under (default: zanctl-PID)")
        ->option_text("NAME")
        ->check(check_module_name);
    app.add_option("--timeout", arguments.timeout, "Longest wait for each answer (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
}

void add_command(CLI::App &app, const Command &command, Arguments &arguments) {
    command.define(app, arguments);
    add_output_options(app, arguments);
    if (command.needs_daemon())
        add_daemon_options(app, arguments);
    app.callback([&arguments, &command] { arguments.command = &command; });
}

void add_family(CLI::App &app, const Family &family, Arguments &arguments) {
    CLI::App *group = nullptr;
    for (const Command &command : family.commands) {
        const std::string name = command.name;
        const std::size_t blank = name.find(' ');
        CLI::App *const parent = blank == std::string::npos ? &app : group;
        CLI::App *const sub = parent->add_subcommand(name.substr(blank + 1), command.summary);
        if (command.heads_group())
            group = sub->require_subcommand(1);
        else
            add_command(*sub, command, arguments);
        if (parent == &app)
            sub->group(family.heading);
    }
}

std::string without_line_end(const std::string &text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

// The parser says only that a command is missing: this names the word that stands in the
// place of one.  Nothing when none does.
std::optional<CLI::ValidationError> unknown_command(const CLI::App &app) {
    const CLI::App *group = &app;
    while (!group->get_subcommands().empty())
        group = group->get_subcommands().front();
    std::string names;
    for (const CLI::App *command : group->get_subcommands([](const CLI::App *) { return true; }))
        names += (names.empty() ? "" : ", ") + command->get_name();
    const std::vector<std::string> words = group->remaining();
    if (names.empty() || words.empty())
        return std::nullopt;
    if (words.front().starts_with('-'))
        return CLI::ValidationError("The following argument was not expected: " + words.front());
    const std::string place = group == &app ? "" : " in \"" + group->get_name() + "\"";
    return CLI::ValidationError("no command \"" + words.front() + "\"" + place + "; there are " +
                                names);
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

CommandLine parse_command_line(int argc, char **argv) {
    CommandLine result;
    result.arguments.name = "zanctl-" + std::to_string(getpid());
    CLI::App app("Reads, writes and watches the configuration of a running zan daemon, and "
                 "sends messages to its modules.",
                 "zanctl");
    app.set_version_flag("--version", "zanctl " ZAN_VERSION_TEXT);
    app.footer(footer);
    add_output_options(app, result.arguments);
    add_daemon_options(app, result.arguments);
    for (const Family &family : families())
        add_family(app, family, result.arguments);
    app.require_subcommand(1);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError &error) {
        if (const auto unknown = unknown_command(app))
            report(app, *unknown, result);
        else
            report(app, error, result);
    } catch (const CLI::ParseError &error) {
        report(app, error, result);
    }
    return result;
}

} // namespace zan::ctl
