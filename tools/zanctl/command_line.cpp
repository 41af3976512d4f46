// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <optional>
#include <sstream>

namespace zan::ctl {
namespace {

constexpr const char *footer = "Exit codes: 0 done, 1 refused or no match, 2 usage, 3 no daemon,\n"
                               "            4 no answer from the daemon in time.";

void add_output_options(CLI::App &app, GlobalOptions &global) {
    app.add_flag("--json", global.json, "Print one JSON object per line");
    app.add_flag("--verbose", global.verbose, "Print the library's diagnostics on standard error");
}

void add_daemon_options(CLI::App &app, GlobalOptions &global) {
    app.add_option("--name", global.name, "Module name to register under (default: zanctl-PID)")
        ->option_text("NAME")
        ->check(check_module_name);
    app.add_option("--timeout", global.timeout, "Maximum wait for each answer (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
}

std::string first_word(const std::string &name) {
    return name.substr(0, name.find(' '));
}

// The first word that is not an option, which names the command or its group.
std::string command_word(const std::vector<std::string> &words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--name" || words[i] == "--timeout")
            ++i;
        else if (!words[i].starts_with('-'))
            return words[i];
    }
    return {};
}

class Parser {
public:
    Parser(const std::vector<std::string> &words, const GlobalOptions &global);
    CommandLine parse(std::vector<std::string> words);

private:
    void add_family(const Family &family, const std::string &only);
    void add_command(CLI::App &app, const Command &command);
    void report_error(const CLI::ParseError &error);

    std::shared_ptr<GlobalOptions> global_;
    CommandLine result_;
    CLI::App app_{"Reads, writes and watches the configuration of a running zan daemon, and "
                  "sends messages to its modules.",
                  "zanctl"};
};

// Defining the options of every command takes longer than a request: if a command is
// named, only its options, or those of its group, are defined.
Parser::Parser(const std::vector<std::string> &words, const GlobalOptions &global)
    : global_(std::make_shared<GlobalOptions>(global)) {
    result_.global = global_;
    app_.set_version_flag("--version", "zanctl " ZAN_VERSION_TEXT);
    app_.footer(footer);
    add_output_options(app_, *global_);
    add_daemon_options(app_, *global_);
    const std::string word = command_word(words);
    const std::vector<std::string> names = command_names();
    const bool known = std::find(names.begin(), names.end(), word) != names.end();
    for (const Family &family : families())
        add_family(family, known ? word : "");
    app_.require_subcommand(1);
}

void Parser::add_command(CLI::App &app, const Command &command) {
    const std::shared_ptr<Invocation> invocation = command.prepare(app, *global_);
    add_output_options(app, *global_);
    if (command.needs_daemon)
        add_daemon_options(app, *global_);
    app.callback([this, invocation, &command] {
        result_.invocation = invocation;
        result_.command = &command;
    });
}

void Parser::add_family(const Family &family, const std::string &only) {
    CLI::App *group = nullptr;
    CLI::App *alias = nullptr;
    for (const Command &command : family.commands) {
        const std::string name = command.name;
        const std::size_t space = name.find(' ');
        if (space == std::string::npos) {
            const bool by_alias = command.alias != nullptr && only == command.alias;
            group = alias = nullptr;
            if (!only.empty() && only != name && !by_alias)
                continue;
            CLI::App *const sub = app_.add_subcommand(name, command.summary);
            sub->group(family.heading);
            if (!command.is_group()) {
                add_command(*sub, command);
                continue;
            }
            group = sub->require_subcommand(1);
            if (command.alias != nullptr) // without a heading it is not listed
                alias = app_.add_subcommand(command.alias, command.summary)
                            ->group("")
                            ->require_subcommand(1);
            continue;
        }
        for (CLI::App *const parent : {group, alias}) {
            if (parent == nullptr)
                continue;
            CLI::App *const sub = parent->add_subcommand(name.substr(space + 1), command.summary);
            sub->group(family.heading); // CLI11 would take that of the parent
            add_command(*sub, command);
        }
    }
}

std::string without_line_end(const std::string &text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

// CLI11 reports only that a command is missing; this names the word in its place.
std::optional<CLI::ValidationError> unknown_command(const CLI::App &app) {
    const CLI::App *group = &app;
    while (!group->get_subcommands().empty())
        group = group->get_subcommands().front();
    std::string names;
    for (const CLI::App *command : group->get_subcommands([](const CLI::App *) { return true; }))
        if (!command->get_group().empty())
            names += (names.empty() ? "" : ", ") + command->get_name();
    const std::vector<std::string> words = group->remaining();
    if (names.empty() || words.empty())
        return std::nullopt;
    if (words.front().starts_with('-'))
        return CLI::ValidationError("unknown option: " + words.front());
    const std::string place = group == &app ? "" : group->get_name() + " ";
    return CLI::ValidationError("unknown command: " + place + words.front() +
                                " (expected one of: " + names + ")");
}

void Parser::report_error(const CLI::ParseError &error) {
    std::ostringstream help;
    std::ostringstream complaint;
    app_.exit(error, help, complaint);
    result_.help = without_line_end(help.str());
    result_.error = without_line_end(complaint.str());
    result_.invocation = nullptr;
}

CommandLine Parser::parse(std::vector<std::string> words) {
    std::reverse(words.begin(), words.end()); // as CLI11 wants them
    try {
        app_.parse(std::move(words));
    } catch (const CLI::RequiredError &error) {
        if (const auto unknown = unknown_command(app_))
            report_error(*unknown);
        else
            report_error(error);
    } catch (const CLI::ParseError &error) {
        report_error(error);
    }
    return result_;
}

} // namespace

CommandLine parse_command_line(const std::vector<std::string> &words, const GlobalOptions &global) {
    return Parser(words, global).parse(words);
}

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    for (const Family &family : families())
        for (const Command &command : family.commands) {
            names.push_back(first_word(command.name));
            if (command.alias != nullptr)
                names.emplace_back(command.alias);
        }
    return names;
}

} // namespace zan::ctl
