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
    add_note(app, "Write -- before a VALUE that begins with a dash.");
}

void define_watch(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->description("Values or subtrees to watch");
    add_arrival_options(app, arguments);
    app.parse_complete_callback([&arguments] {
        if (arguments.paths.empty() && arguments.events.empty())
            throw CLI::RequiredError("PATH or --event");
    });
}

// Refuses what the library would cut.
void check_together(const std::string &path, const std::string &text, std::size_t longest) {
    if (path.size() + 1 + text.size() > longest)
        throw CLI::ValidationError("TEXT", "path and text have at most " + std::to_string(longest) +
                                               " characters together");
}

void add_mode(CLI::App &app, Arguments &arguments) {
    app.add_option("--mode", arguments.mode, "A number for the daemon (default: 0)")
        ->option_text("N");
}

void define_dump(CLI::App &app, Arguments &arguments) {
    app.add_option("FILE", arguments.dump_file, "The file, by the daemon's name for it")
        ->option_text(" ")
        ->required()
        ->check(check_file_name);
    add_mode(app, arguments);
}

void define_print(CLI::App &app, Arguments &arguments) {
    add_path(app, arguments);
    app.add_option("TEXT", arguments.text, "A text for the daemon")->option_text("[]");
    add_mode(app, arguments);
    app.parse_complete_callback(
        [&arguments] { check_together(arguments.path, arguments.text, ZAN_LONGEST_PRINT); });
}

void define_attr_set(CLI::App &app, Arguments &arguments) {
    add_path(app, arguments);
    app.add_option("TEXT", arguments.attributes, "The attributes, as the daemon writes them")
        ->option_text(" ")
        ->required();
    app.parse_complete_callback([&arguments] {
        check_together(arguments.path, arguments.attributes, ZAN_LONGEST_ATTRIBUTES);
    });
}

void define_reset(CLI::App &app, Arguments &arguments) {
    define_paths(app, arguments);
    add_confirmation(app, arguments);
}

void define_apply(CLI::App &app, Arguments &arguments) {
    app.add_flag("--firewall", arguments.firewall_only, "Only the firewall's part");
    add_confirmation(app, arguments);
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
        print_json(output, arguments, {{"path", arguments.path}, {"value", arguments.value}});
    });
}

int change(zan_cfg_cmd cmd, const char *done, Session &session, const Arguments &arguments,
           Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        ask(session, cmd, path);
        print_json(output, arguments, {{"path", path}, {done, true}});
    });
}

int run_del(Session &session, const Arguments &arguments, Output &output) {
    return change(ZAN_CFG_DELETE, "deleted", session, arguments, output);
}

int run_add(Session &session, const Arguments &arguments, Output &output) {
    return change(ZAN_CFG_ANCHOR, "added", session, arguments, output);
}

int run_dump(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.dump_file, [&] {
        ask(session, ZAN_CFG_DUMP, arguments.dump_file, arguments.mode);
        print_json(output, arguments, {{"file", arguments.dump_file}, {"mode", arguments.mode}});
    });
}

int run_print(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.path, [&] {
        const std::string text = arguments.text.empty() ? "" : " " + arguments.text;
        ask(session, ZAN_CFG_PRINT, arguments.path + text, arguments.mode);
        print_json(output, arguments, {{"path", arguments.path}, {"mode", arguments.mode}});
    });
}

int run_attr_get(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string text = ask(session, ZAN_CFG_GET_ATTR, path);
        print(output, arguments, text, {{"path", path}, {"attributes", text}});
    });
}

int run_attr_set(Session &session, const Arguments &arguments, Output &output) {
    return attempt(arguments.path, [&] {
        ask(session, ZAN_CFG_SET_ATTR, arguments.path + " " + arguments.attributes);
        print_json(output, arguments,
                   {{"path", arguments.path}, {"attributes", arguments.attributes}});
    });
}

int run_reset(Session &session, const Arguments &arguments, Output &output) {
    return change(ZAN_CFG_RESET, "reset", session, arguments, output);
}

// Through the library, which asks first whether the configuration is being written.
int run_apply(Session &session, const Arguments &arguments, Output &output) {
    return attempt("apply", [&] {
        session.call(arguments.firewall_only ? cfg_apply_firewall_event : cfg_apply_all);
        print_json(output, arguments, {{"applied", arguments.firewall_only ? "firewall" : "all"}});
    });
}

constexpr Command tree_commands[] = {
    {"get", "Print values", define_get, run_get},
    {"set", "Write a value", define_set, run_set},
    {"count", "Print the number of instances of an object", define_paths, run_count},
    {"array", "Print all instances of an object, as the daemon renders them", define_paths,
     run_array},
    {"add", "Create an instance of an object", define_paths, run_add},
    {"del", "Delete a node or an instance", define_paths, run_del},
    {"watch", "Print changes and events as they come", define_watch, run_watch},
    {"attr", "Attributes of nodes"},
    {"attr get", "Print attributes", define_paths, run_attr_get},
    {"attr set", "Write attributes", define_attr_set, run_attr_set},
    {"dump", "Have the daemon write its tree to a file", define_dump, run_dump},
    {"print", "Have the daemon print a subtree, where it prints", define_print, run_print},
    {"reset", "Reset subtrees to their defaults", define_reset, run_reset},
    {"apply", "Apply the configuration to the running system", define_apply, run_apply},
};

} // namespace

const Family tree_family = {"Configuration", tree_commands};

} // namespace zan::ctl
