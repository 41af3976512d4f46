// SPDX-License-Identifier: MIT
#include "commands.h"

#include "json.h"
#include "watch.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <charconv>
#include <cstdio>

namespace zan::ctl {
namespace {

constexpr const char *cfg_module = "ZAN_CFG";
constexpr const char *core_module = "ZAN";

// ---- arguments

std::string check_path(const std::string &path) {
    if (path.empty() || path.size() >= ZAN_PATH_SIZE)
        return "a path has 1 to " + std::to_string(ZAN_PATH_SIZE - 1) + " characters";
    if (std::any_of(path.begin(), path.end(),
                    [](unsigned char c) { return c <= ' ' || c == 0x7f; }))
        return "a path has no blanks or control characters";
    return {};
}

CLI::Option *add_paths(CLI::App &app, Arguments &arguments) {
    return app.add_option("PATH", arguments.paths, "Paths, such as /sys/user:1/name")
        ->option_text("...")
        ->check(check_path);
}

void define_paths(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->required();
}

// The payload of a write is "0PATH VALUE".
std::string check_value(const std::string &value) {
    if (value.size() > ZAN_DATA_SIZE - ZAN_PATH_SIZE - 2)
        return "a value has at most " + std::to_string(ZAN_DATA_SIZE - ZAN_PATH_SIZE - 2) +
               " characters";
    return {};
}

void define_set(CLI::App &app, Arguments &arguments) {
    app.add_option("PATH", arguments.path, "A path, such as /sys/user:1/name")
        ->option_text(" ")
        ->required()
        ->check(check_path);
    app.add_option("VALUE", arguments.value, "The new value; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_value);
    app.footer("Write -- before a VALUE that begins with a dash.");
}

CLI::Option *add_module(CLI::App &app, Arguments &arguments) {
    return app.add_option("MODULE", arguments.module, "The name it has registered under")
        ->option_text(" ")
        ->required();
}

void define_module(CLI::App &app, Arguments &arguments) {
    add_module(app, arguments);
}

void add_arrival_options(CLI::App &app, Arguments &arguments) {
    app.add_option("--event", arguments.events, "Event code to watch; may be repeated")
        ->option_text("CODE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--count", arguments.count, "End after so many lines")
        ->option_text("N")
        ->check(CLI::PositiveNumber);
    app.add_flag("--time", arguments.time, "Say when each came");
}

void define_watch(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->description("Values or subtrees to watch");
    add_arrival_options(app, arguments);
    app.parse_complete_callback([&arguments] {
        if (arguments.paths.empty() && arguments.events.empty())
            throw CLI::RequiredError("PATH or --event");
    });
}

// The library would cut a longer one without a word.
constexpr std::size_t longest_text = 1024;

std::string check_text(const std::string &text) {
    if (text.size() > longest_text)
        return "a message has at most " + std::to_string(longest_text) + " characters";
    return {};
}

std::string check_command_line(const std::string &text) {
    if (text.empty() || text.size() > longest_text)
        return "a command line has 1 to " + std::to_string(longest_text) + " characters";
    return {};
}

void define_text(CLI::App &app, Arguments &arguments) {
    app.add_option("TEXT", arguments.text, "The message; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_text);
    app.footer("Write -- before a TEXT that begins with a dash.");
}

void define_send(CLI::App &app, Arguments &arguments) {
    add_module(app, arguments)->check(check_module_name);
    define_text(app, arguments);
    app.add_flag("--ack", arguments.acknowledged, "Wait for the daemon's acknowledgement");
}

void define_control(CLI::App &app, Arguments &arguments) {
    app.add_option("CMDLINE", arguments.text, "A command line for the daemon, as one word")
        ->option_text(" ")
        ->required()
        ->check(check_command_line);
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
    add_arrival_options(app, arguments);
}

// ---- running

// Runs the action; when the daemon refuses it, says so about `subject`.
template<typename Action> int attempt(const std::string &subject, Action action) {
    try {
        action();
    } catch (const Refused &refusal) {
        print_refusal(subject, refusal);
        return exit_refused;
    }
    return exit_done;
}

// Runs the action on each path, and goes on after a refusal.
template<typename Action> int for_each_path(const Arguments &arguments, Action action) {
    int exit_code = exit_done;
    for (const std::string &path : arguments.paths)
        exit_code = std::max(exit_code, attempt(path, [&] { action(path); }));
    return exit_code;
}

std::string ask(Session &session, zan_cfg_cmd cmd, const std::string &payload) {
    return session.request({ZAN_CLASS_CFG, cmd, cfg_module, payload});
}

long to_number(const std::string &text) {
    long number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw Refused("answered \"" + text + "\", which is no number");
    return number;
}

void print(Output &output, const Arguments &arguments, const std::string &plain, const Json &json) {
    output.line(arguments.json ? to_line(json) : plain);
}

int run_get(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string value = ask(session, ZAN_CFG_GET, path);
        print(output, arguments, value, {{"path", path}, {"value", value}});
    });
}

// The daemon's text has lines of its own: nothing for no instance, and a line end
// of its own for the last.
int run_array(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string text = ask(session, ZAN_CFG_GET_ARRAY, path);
        if (arguments.json)
            output.line(to_line({{"path", path}, {"value", text}}));
        else if (!text.empty())
            output.line(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
    });
}

int run_count(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        // A read of the path with this suffix answers with the number of instances.
        const long count = to_number(ask(session, ZAN_CFG_GET, path + "#"));
        print(output, arguments, std::to_string(count), {{"path", path}, {"count", count}});
    });
}

int run_set(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.path, [&] {
        ask(session, ZAN_CFG_SET, "0" + arguments.path + " " + arguments.value);
        if (arguments.json)
            output.line(to_line({{"path", arguments.path}, {"value", arguments.value}}));
    });
}

int change(zan_cfg_cmd cmd, const char *done, Session &session, const Arguments &arguments,
           Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        ask(session, cmd, path);
        if (arguments.json)
            output.line(to_line({{"path", path}, {done, true}}));
    });
}

int run_del(Session &session, const Arguments &arguments, Output &output) {
    return change(ZAN_CFG_DELETE, "deleted", session, arguments, output);
}

int run_add(Session &session, const Arguments &arguments, Output &output) {
    return change(ZAN_CFG_ANCHOR, "added", session, arguments, output);
}

int run_pid(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.module, [&] {
        const long pid = to_number(ask(session, ZAN_CFG_MODULE_PID, arguments.module));
        print(output, arguments, std::to_string(pid), {{"module", arguments.module}, {"pid", pid}});
    });
}

int run_send(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.module, [&] {
        Json json = {{"module", arguments.module}, {"text", arguments.text}};
        if (arguments.acknowledged) {
            session.request({ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, arguments.module.c_str(),
                             arguments.text});
            json["acknowledged"] = true;
        } else {
            session.post([&] {
                return zan_send(arguments.module.c_str(), arguments.text.data(),
                                static_cast<int>(arguments.text.size()));
            });
        }
        if (arguments.json)
            output.line(to_line(json));
    });
}

int run_broadcast(Session &session, const Arguments &arguments, Output &output) {
    return attempt("broadcast", [&] {
        session.request({ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, core_module, arguments.text});
        if (arguments.json)
            output.line(to_line({{"text", arguments.text}, {"acknowledged", true}}));
    });
}

int run_control(Session &session, const Arguments &arguments, Output &output) {
    session.post([&] { return zan_ctl_request(arguments.text.c_str()); });
    if (arguments.json)
        output.line(to_line({{"command_line", arguments.text}}));
    return exit_done;
}

constexpr Command table[] = {
    {"get", "Print values", define_paths, run_get},
    {"set", "Write a value", define_set, run_set},
    {"count", "Print the number of instances of an object", define_paths, run_count},
    {"array", "Print all instances of an object, as the daemon renders them", define_paths,
     run_array},
    {"add", "Create an instance of an object", define_paths, run_add},
    {"del", "Delete a node or an instance", define_paths, run_del},
    {"watch", "Print changes and events as they come", define_watch, run_watch},
    {"pid", "Print the process id of a module", define_module, run_pid},
    {"send", "Send a message to a module", define_send, run_send},
    {"broadcast", "Send a message to all modules", define_text, run_broadcast},
    {"listen", "Print messages as they come", define_listen, run_listen},
    {"control", "Hand the daemon a command line to carry out", define_control, run_control},
};

} // namespace

std::span<const Command> commands() {
    return table;
}

void print_refusal(const std::string &subject, const Refused &refusal) {
    std::fprintf(stderr, "zanctl: %s: %s\n", subject.c_str(), refusal.what());
}

} // namespace zan::ctl
