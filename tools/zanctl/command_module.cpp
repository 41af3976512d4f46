// SPDX-License-Identifier: MIT
// Other modules: which there are, and messages to and from them.
#include "run.h"
#include "watch.h"

#include <functional>

namespace zan::ctl {
namespace {

void define_module(CLI::App &app, Arguments &arguments) {
    add_module(app, arguments);
}

void define_text(CLI::App &app, Arguments &arguments) {
    app.add_option("TEXT", arguments.text, "The message; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_text);
    add_note(app, "Write -- before a TEXT that begins with a dash.");
}

void define_send(CLI::App &app, Arguments &arguments) {
    add_module(app, arguments);
    define_text(app, arguments);
    auto *const ack =
        app.add_flag("--ack", arguments.acknowledged, "Wait for the daemon's acknowledgement");
    // What an agent sends is always acknowledged.
    add_agent_option(app, arguments)->needs(ack);
}

void define_broadcast(CLI::App &app, Arguments &arguments) {
    define_text(app, arguments);
    add_agent_option(app, arguments);
}

void define_control(CLI::App &app, Arguments &arguments) {
    app.add_option("CMDLINE", arguments.command_line, "A command line for the daemon, as one word")
        ->option_text(" ")
        ->required()
        ->check(check_command_line);
    add_confirmation(app, arguments);
}

void define_listen(CLI::App &app, Arguments &arguments) {
    app.add_option("NAME", arguments.name, "Module name to register under, as with --name")
        ->option_text(" ")
        ->check(check_module_name);
    app.add_option("--watch", arguments.paths, "Value or subtree to watch; may be repeated")
        ->option_text("PATH")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(check_path);
    add_agent_option(app, arguments);
    add_arrival_options(app, arguments);
}

int run_pid(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.module, [&] {
        const long pid = to_number(ask(session, ZAN_CFG_MODULE_PID, arguments.module));
        print(output, arguments, std::to_string(pid), {{"module", arguments.module}, {"pid", pid}});
    });
}

// One of the library's sends of a message, with the message.
std::function<int()> sending(int (*send)(const char *, const void *, int),
                             const std::string &module, const std::string &text) {
    return [=] { return send(module.c_str(), text.data(), static_cast<int>(text.size())); };
}

int run_send(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.module, [&] {
        Json json = {{"module", arguments.module}, {"text", arguments.text}};
        if (arguments.agent)
            session.call_over_link(sending(zan_send_agent, arguments.module, arguments.text));
        else if (arguments.acknowledged)
            session.request({ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, arguments.module.c_str(),
                             arguments.text});
        else
            session.post(sending(zan_send, arguments.module, arguments.text));
        if (arguments.acknowledged)
            json["acknowledged"] = true;
        print_json(output, arguments, json);
    });
}

int run_broadcast(Session &session, const Arguments &arguments, Output &output) {
    return attempt("broadcast", [&] {
        if (arguments.agent)
            session.call_over_link(sending(zan_send_all_agent, ZAN_MODULE_CORE, arguments.text));
        else
            session.request(
                {ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, ZAN_MODULE_CORE, arguments.text});
        print_json(output, arguments, {{"text", arguments.text}, {"acknowledged", true}});
    });
}

int run_control(Session &session, const Arguments &arguments, Output &output) {
    session.post([&] { return zan_ctl_request(arguments.command_line.c_str()); });
    print_json(output, arguments, {{"command_line", arguments.command_line}});
    return exit_done;
}

constexpr Command module_commands[] = {
    {"pid", "Print the process id of a module", define_module, run_pid},
    {"send", "Send a message to a module", define_send, run_send},
    {"broadcast", "Send a message to all modules", define_broadcast, run_broadcast},
    {"listen", "Print messages as they come", define_listen, run_listen},
    {"control", "Hand the daemon a command line to carry out", define_control, run_control},
};

} // namespace

const Family module_family = {"Modules", module_commands};

} // namespace zan::ctl
