// SPDX-License-Identifier: MIT
// Other modules: their process ids, and messages to and from them.
#include "run.h"
#include "watch.h"

#include <functional>

namespace zan::ctl::module_commands {
namespace {

struct ModuleOptions : Options {
    std::string module;
};

void define_text(CLI::App &app, std::string &text) {
    app.add_option("TEXT", text, "The message; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_text);
    add_note(app, "Write -- before a TEXT that begins with a dash.");
}

// One of the library's send functions, with its arguments.
std::function<int()> sending(int (*send)(const char *, const void *, int),
                             const std::string &module, const std::string &text) {
    return [=] { return send(module.c_str(), text.data(), static_cast<int>(text.size())); };
}

// ---- pid

void define_pid(CLI::App &app, ModuleOptions &options) {
    add_module(app, options.module);
}

ExitCode run_pid(Session &session, const ModuleOptions &options, Output &output) {
    return attempt(output, options, options.module, [&] {
        const long pid = to_number(ask(session, ZAN_CFG_MODULE_PID, options.module));
        print(output, options, std::to_string(pid), {{"module", options.module}, {"pid", pid}});
    });
}

// ---- send

struct SendOptions : ModuleOptions {
    std::string text;
    bool acknowledged = false;
    bool agent = false;
};

void define_send(CLI::App &app, SendOptions &options) {
    add_module(app, options.module);
    define_text(app, options.text);
    auto *const ack =
        app.add_flag("--ack", options.acknowledged, "Wait for the daemon's acknowledgement");
    // The library always waits for the acknowledgement of an agent's message.
    add_agent_option(app, options.agent)->needs(ack);
}

ExitCode run_send(Session &session, const SendOptions &options, Output &output) {
    if (options.agent)
        session.register_agent();
    return attempt(output, options, options.module, [&] {
        Json json = {{"module", options.module}, {"text", options.text}};
        if (options.agent)
            session.call_over_link(sending(zan_send_agent, options.module, options.text));
        else if (options.acknowledged)
            session.request({ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, options.module.c_str(),
                             options.text});
        else
            session.post(sending(zan_send, options.module, options.text));
        if (options.acknowledged)
            json["acknowledged"] = true;
        print_json(output, options, json);
    });
}

// ---- broadcast

struct BroadcastOptions : Options {
    std::string text;
    bool agent = false;
};

void define_broadcast(CLI::App &app, BroadcastOptions &options) {
    define_text(app, options.text);
    add_agent_option(app, options.agent);
}

ExitCode run_broadcast(Session &session, const BroadcastOptions &options, Output &output) {
    if (options.agent)
        session.register_agent();
    return attempt(output, options, "broadcast", [&] {
        if (options.agent)
            session.call_over_link(sending(zan_send_all_agent, ZAN_MODULE_CORE, options.text));
        else
            session.request(
                {ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, ZAN_MODULE_CORE, options.text});
        print_json(output, options, {{"text", options.text}, {"acknowledged", true}});
    });
}

// ---- listen

void define_listen(CLI::App &app, ArrivalOptions &options) {
    app.add_option("NAME", options.global->name, "Module name to register under, as with --name")
        ->option_text(" ")
        ->check(check_module_name);
    app.add_option("--watch", options.paths, "Value or subtree to watch; may be repeated")
        ->option_text("PATH")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(check_path);
    add_agent_option(app, options.agent);
    add_arrival_options(app, options);
}

// ---- control

struct ControlOptions : Options {
    std::string command_line;
};

void define_control(CLI::App &app, ControlOptions &options) {
    app.add_option("CMDLINE", options.command_line, "A command line, as one word")
        ->option_text(" ")
        ->required()
        ->check(check_command_line);
    add_confirmation(app, Confirmation::at_terminal);
}

ExitCode run_control(Session &session, const ControlOptions &options, Output &output) {
    session.post([&] { return zan_ctl_request(options.command_line.c_str()); });
    print_json(output, options, {{"command_line", options.command_line}});
    return ExitCode::done;
}

constexpr Command commands[] = {
    command<define_pid, run_pid>("pid", "Print the process id of a module"),
    command<define_send, run_send>("send", "Send a message to a module"),
    command<define_broadcast, run_broadcast>("broadcast", "Send a message to all modules"),
    command<define_listen, run_listen>("listen", "Print messages as they arrive").alone(),
    command<define_control, run_control>("control", "Send the daemon a command line to execute"),
};

const FamilyRegistration registration({"Modules", 20, commands});

} // namespace
} // namespace zan::ctl::module_commands
