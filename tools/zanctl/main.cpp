// SPDX-License-Identifier: MIT
#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "interrupt.h"
#include "output.h"
#include "session.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

namespace zan::ctl {
namespace {

// The caller's shell sees how the program was ended.
int end_by_signal(int number) {
    std::signal(number, SIG_DFL);
    std::raise(number);
    return exit_refused;
}

int complain(ExitCode code, const char *text) {
    std::fprintf(stderr, "zanctl: %s\n", text);
    return code;
}

int run(int argc, char **argv) {
    Output output;
    const CommandLine line = parse_command_line(argc, argv);
    if (!line.runs()) {
        if (line.exit_code != exit_done)
            return complain(exit_usage, line.complaint.c_str());
        output.line(line.help);
        return exit_done;
    }
    catch_signals();
    const Arguments &arguments = line.arguments;
    if (const auto *const run = std::get_if<LocalCommand>(&arguments.command->run))
        return (*run)(arguments, output);
    Session session(arguments.name, arguments.timeout);
    if (arguments.agent)
        session.register_agent();
    return std::get<DaemonCommand>(arguments.command->run)(session, arguments, output);
}

int guarded_run(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const Interrupted &interruption) {
        return end_by_signal(interruption.signal);
    } catch (const Failure &failure) {
        return complain(failure.code(), failure.what());
    } catch (const std::system_error &error) {
        if (error.code().value() == EPIPE)
            return end_by_signal(SIGPIPE);
        return complain(exit_refused, error.what());
    }
}

} // namespace
} // namespace zan::ctl

int main(int argc, char **argv) {
    return zan::ctl::guarded_run(argc, argv);
}
