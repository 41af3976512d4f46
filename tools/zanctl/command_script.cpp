// SPDX-License-Identifier: MIT
// Help, and commands from standard input.
#include "command_line.h"
#include "file.h"
#include "run.h"
#include "words.h"

namespace zan::ctl::script_commands {
namespace {

// Of an error of usage, without the hint at --help.
std::string first_line(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

// ---- batch

struct BatchOptions : Options {
    bool keep_going = false;
};

void define_batch(CLI::App &app, BatchOptions &options) {
    app.add_flag("--keep-going", options.keep_going, "Continue after a command that fails");
    add_note(app, "Reads a command per line, with words quoted as in a shell; # begins a comment.\n"
                  "All are made as one module, registered once.");
}

// Throws Error if the line is not a command that a batch can run.
CommandLine parse_line(const std::string &line, const GlobalOptions &global) {
    const auto words = split_words(line);
    if (!words)
        throw Error(ExitCode::usage, "a quotation mark is not closed");
    if (words->empty())
        return {};
    CommandLine parsed = parse_command_line(*words, global);
    if (!parsed.error.empty())
        throw Error(ExitCode::usage, first_line(parsed.error));
    if (parsed.runs() && parsed.command->runs_alone)
        throw Error(ExitCode::usage, std::string(parsed.command->name) + " cannot run in a batch");
    if (parsed.runs() && parsed.global->name != global.name)
        throw Error(ExitCode::usage, "the name of the module belongs to the batch");
    return parsed;
}

ExitCode run_line(Session &session, const std::string &line, const GlobalOptions &global,
                  Output &output) {
    const CommandLine parsed = parse_line(line, global);
    if (!parsed.runs()) {
        if (!parsed.help.empty())
            output.line(parsed.help);
        return ExitCode::done;
    }
    session.set_timeout(parsed.global->timeout.value_or(default_timeout));
    try {
        return parsed.invocation->run(&session, output);
    } catch (const Refusal &refusal) { // of the registration as an agent
        print_refusal(output, {parsed.global.get()}, parsed.command->name, refusal);
        return refusal.exit_code();
    }
}

ExitCode run_batch(Session &session, const BatchOptions &options, Output &output) {
    ExitCode exit_code = ExitCode::done;
    for (std::size_t number = 1;; ++number) {
        const std::optional<std::string> line = read_input_line();
        if (!line)
            return exit_code;
        ExitCode result = ExitCode::done;
        try {
            result = run_line(session, *line, *options.global, output);
        } catch (const Error &error) {
            const bool is_usage = error.exit_code() == ExitCode::usage;
            if (!is_usage)
                throw;
            result = error.exit_code();
            report("line " + std::to_string(number) + ": " + error.what());
        }
        exit_code = std::max(exit_code, result);
        if (result == ExitCode::done || options.keep_going)
            continue;
        report("batch stopped at line " + std::to_string(number) + ": " + *line);
        return exit_code;
    }
}

// ---- help

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
    command<define_batch, run_batch>("batch", "Run commands from standard input").alone(),
    command<define_help, run_help>("help", "Print the help of zanctl or of a command"),
};

const FamilyRegistration registration({"Scripts and help", 90, commands});

} // namespace
} // namespace zan::ctl::script_commands
