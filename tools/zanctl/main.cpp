// SPDX-License-Identifier: MIT
#include "command_line.h"
#include "interrupt.h"
#include "output.h"
#include "run.h"
#include "session.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <unistd.h>

namespace zan::ctl {
namespace {

// Shows the caller's shell which signal ended the program.
int end_by_signal(int number) {
    std::signal(number, SIG_DFL);
    std::raise(number);
    return static_cast<int>(ExitCode::refused);
}

int fail(ExitCode exit_code, const std::string &text) {
    report(text);
    return static_cast<int>(exit_code);
}

ExitCode run(const CommandLine &line, Output &output) {
    if (line.global->verbose)
        Output::show_diagnostics();
    catch_signals();
    if (!line.command->needs_daemon)
        return line.invocation->run(nullptr, output);
    try {
        Session session(line.global->name, line.global->timeout.value_or(default_timeout));
        return line.invocation->run(&session, output);
    } catch (const Refusal &refusal) {
        print_refusal(output, {line.global.get()}, line.global->name, refusal);
        return refusal.exit_code();
    }
}

int run(const std::vector<std::string> &words) {
    Output output;
    GlobalOptions defaults;
    defaults.name = "zanctl-" + std::to_string(getpid());
    const CommandLine line = parse_command_line(words, defaults);
    if (line.runs())
        return static_cast<int>(run(line, output));
    if (line.help.empty())
        return fail(ExitCode::usage, line.error);
    output.line(line.help);
    return static_cast<int>(ExitCode::done);
}

int guarded_run(const std::vector<std::string> &words) {
    try {
        return run(words);
    } catch (const Interrupted &interruption) {
        return end_by_signal(interruption.signal);
    } catch (const Error &error) {
        return fail(error.exit_code(), error.what());
    } catch (const std::system_error &error) {
        if (error.code().value() == EPIPE)
            return end_by_signal(SIGPIPE);
        return fail(ExitCode::refused, error.what());
    }
}

} // namespace
} // namespace zan::ctl

int main(int argc, char **argv) {
    return zan::ctl::guarded_run({argv + std::min(argc, 1), argv + argc});
}
