// SPDX-License-Identifier: MIT
// Values, instances and nodes of the configuration tree.
#include "run.h"
#include "watch.h"

namespace zan::ctl {
namespace {

void define_paths(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->required();
}

void define_get(CLI::App &app, Arguments &arguments) {
    define_paths(app, arguments);
    add_agent_option(app, arguments);
}

// The payload of a write is "0PATH VALUE".
std::string check_value(const std::string &value) {
    if (value.size() > ZAN_DATA_SIZE - ZAN_PATH_SIZE - 2)
        return "a value has at most " + std::to_string(ZAN_DATA_SIZE - ZAN_PATH_SIZE - 2) +
               " characters";
    return {};
}

void define_set(CLI::App &app, Arguments &arguments) {
    add_path(app, arguments);
    app.add_option("VALUE", arguments.value, "The new value; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_value);
    app.footer("Write -- before a VALUE that begins with a dash.");
}

void define_watch(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->description("Values or subtrees to watch");
    add_arrival_options(app, arguments);
    app.parse_complete_callback([&arguments] {
        if (arguments.paths.empty() && arguments.events.empty())
            throw CLI::RequiredError("PATH or --event");
    });
}

int run_get(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string value =
            arguments.agent ? session.get_over_link(path) : ask(session, ZAN_CFG_GET, path);
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

constexpr Command commands[] = {
    {"get", "Print values", define_get, run_get},
    {"set", "Write a value", define_set, run_set},
    {"count", "Print the number of instances of an object", define_paths, run_count},
    {"array", "Print all instances of an object, as the daemon renders them", define_paths,
     run_array},
    {"add", "Create an instance of an object", define_paths, run_add},
    {"del", "Delete a node or an instance", define_paths, run_del},
    {"watch", "Print changes and events as they come", define_watch, run_watch},
};

} // namespace

const Family tree_family = {"Configuration", commands};

} // namespace zan::ctl
