// SPDX-License-Identifier: MIT
// A command is one row of the table in its command_*.cpp: its name, its summary, a
// function that defines its options and one that runs it.  Each of these files has its own
// namespace, because a unity build compiles several as one.
#pragma once

#include "error.h"
#include "options.h"
#include "output.h"
#include "session.h"

#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace zan::ctl {

// A parsed command, ready to run.
class Invocation {
public:
    Invocation() = default;
    virtual ~Invocation() = default;
    Invocation(const Invocation &) = delete;
    Invocation &operator=(const Invocation &) = delete;

    // A command that needs no daemon ignores the session, which may be null.
    virtual ExitCode run(Session *session, Output &output) const = 0;
};

struct Command {
    const char *name; // two words for a command of a group, as in "attr get"
    const char *summary;
    bool needs_daemon = false;
    // Defines the options in `app`.  Null for a group, whose commands follow its row.
    std::shared_ptr<Invocation> (*prepare)(CLI::App &app, GlobalOptions &global) = nullptr;
    // For a group: an older name, which is accepted but not listed.
    const char *alias = nullptr;
    // It waits for events or reads commands, so it cannot be one of several in a session.
    bool runs_alone = false;

    constexpr Command alone() const {
        Command command = *this;
        command.runs_alone = true;
        return command;
    }
    bool is_group() const { return prepare == nullptr; }
};

// The commands under one heading of the help.
struct Family {
    const char *heading;
    int position; // in the help
    std::span<const Command> commands;
};

// Defined once in each command_*.cpp, as a constant of the file.
class FamilyRegistration {
public:
    explicit FamilyRegistration(const Family &family);
};

// All that are registered, in the order of the help.
const std::vector<Family> &families();

namespace detail {

template<typename Run> struct RunTraits;

template<typename CommandOptions>
struct RunTraits<ExitCode (*)(Session &, const CommandOptions &, Output &)> {
    using Options = CommandOptions;
    static constexpr bool needs_daemon = true;
};

template<typename CommandOptions> struct RunTraits<ExitCode (*)(const CommandOptions &, Output &)> {
    using Options = CommandOptions;
    static constexpr bool needs_daemon = false;
};

template<auto define, auto run_command> class CommandInvocation : public Invocation {
    using Traits = RunTraits<decltype(run_command)>;

public:
    CommandInvocation(CLI::App &app, GlobalOptions &global) {
        options_.global = &global;
        define(app, options_);
    }
    ExitCode run(Session *session, Output &output) const override {
        if constexpr (Traits::needs_daemon)
            return run_command(*session, options_, output);
        else
            return run_command(options_, output);
    }

private:
    typename Traits::Options options_;
};

} // namespace detail

// A row for a command.  The type of its options is that of the parameter of `run`, which
// takes a session first if the command needs the daemon.
template<auto define, auto run> constexpr Command command(const char *name, const char *summary) {
    return {name, summary, detail::RunTraits<decltype(run)>::needs_daemon,
            [](CLI::App &app, GlobalOptions &global) -> std::shared_ptr<Invocation> {
                return std::make_shared<detail::CommandInvocation<define, run>>(app, global);
            }};
}

// A row for a group of commands.
constexpr Command command_group(const char *name, const char *summary,
                                const char *alias = nullptr) {
    return {name, summary, false, nullptr, alias};
}

} // namespace zan::ctl
