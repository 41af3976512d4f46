// SPDX-License-Identifier: MIT
// Help.
#include "command_line.h"
#include "run.h"

namespace zan::ctl::script_commands {
namespace {

// Of an error of usage, without the hint at --help.
std::string first_line(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

struct HelpOptions : Options {
    std::vector<std::string> command;
};

void define_help(CLI::App &app, HelpOptions &options) {
    app.add_option("COMMAND", options.command, "The command, such as get or attr set")
        ->option_text("[]");
}

// CLI11 would print the general help for an unknown command.
void check_command(const HelpOptions &options) {
    const std::vector<std::string> names = command_names();
    if (options.command.empty() ||
        std::find(names.begin(), names.end(), options.command.front()) != names.end())
        return;
    const CommandLine line = parse_command_line({options.command.front()}, *options.global);
    throw Error(ExitCode::usage, first_line(line.error));
}

ExitCode run_help(const HelpOptions &options, Output &output) {
    check_command(options);
    std::vector<std::string> words = options.command;
    words.emplace_back("--help");
    output.line(parse_command_line(words, *options.global).help);
    return ExitCode::done;
}

constexpr Command commands[] = {
    command<define_help, run_help>("help", "Print the help of zanctl or of a command"),
};

const FamilyRegistration registration({"Help", 90, commands});

} // namespace
} // namespace zan::ctl::script_commands
