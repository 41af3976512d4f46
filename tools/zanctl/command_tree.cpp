// SPDX-License-Identifier: MIT
// Values, instances and nodes of the configuration tree.
#include "instance.h"
#include "run.h"
#include "watch.h"

namespace zan::ctl::tree_commands {
namespace {

constexpr std::size_t max_value = ZAN_DATA_SIZE - ZAN_PATH_SIZE - 2; // "0PATH VALUE"
constexpr std::size_t max_print = ZAN_LONGEST_PRINT;
constexpr std::size_t max_attributes = ZAN_LONGEST_ATTRIBUTES;

void define_paths(CLI::App &app, PathsOptions &options) {
    add_paths(app, options.paths)->required();
}

// Refuses what the library would truncate.
void check_together(const std::string &path, const std::string &text, std::size_t max) {
    if (path.size() + 1 + text.size() > max)
        throw CLI::ValidationError("TEXT", "path and text have at most " + std::to_string(max) +
                                               " characters together");
}

void add_mode(CLI::App &app, int &mode) {
    app.add_option("--mode", mode, "A number for the daemon (default: 0)")->option_text("N");
}

// ---- get, set, count

struct GetOptions : PathsOptions {
    bool agent = false;
};

void define_get(CLI::App &app, GetOptions &options) {
    define_paths(app, options);
    add_agent_option(app, options.agent);
}

ExitCode run_get(Session &session, const GetOptions &options, Output &output) {
    if (options.agent)
        session.register_agent();
    return for_each_path(output, options, [&](const std::string &path) {
        const std::string value =
            options.agent ? session.get_over_link(path) : ask(session, ZAN_CFG_GET, path);
        print(output, options, value, {{"path", path}, {"value", value}});
    });
}

struct SetOptions : PathOptions {
    std::string value;
};

std::string check_value(const std::string &value) {
    if (value.size() > max_value)
        return "a value has at most " + std::to_string(max_value) + " characters";
    return {};
}

void define_set(CLI::App &app, SetOptions &options) {
    add_path(app, options.path);
    app.add_option("VALUE", options.value, "The new value; \"\" for an empty one")
        ->option_text(" ")
        ->required()
        ->check(check_value);
    add_note(app, "Write -- before a VALUE that begins with a dash.");
}

ExitCode run_set(Session &session, const SetOptions &options, Output &output) {
    return attempt(output, options, options.path, [&] {
        ask(session, ZAN_CFG_SET, "0" + options.path + " " + options.value);
        print_json(output, options, {{"path", options.path}, {"value", options.value}});
    });
}

ExitCode run_count(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        // Reading a path that ends with "#" returns the number of instances.
        const long count = to_number(ask(session, ZAN_CFG_GET, path + "#"));
        print(output, options, std::to_string(count), {{"path", path}, {"count", count}});
    });
}

// ---- instances

Json to_json(const std::string &path, const std::string &text) {
    const std::optional<std::vector<Instance>> instances = parse_instances(text);
    if (!instances)
        return {{"path", path}, {"text", text}};
    Json list = Json::array();
    for (const Instance &instance : *instances) {
        Json values = Json::object();
        for (const auto &[name, value] : instance.values)
            values[name] = value;
        list.push_back({{"number", instance.number}, {"values", values}});
    }
    return {{"path", path}, {"instances", list}};
}

// The daemon's text has a line for each instance and may end with a newline.
ExitCode run_array(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        const std::string text = ask(session, ZAN_CFG_GET_ARRAY, path);
        if (options.json())
            output.line(to_line(to_json(path, text)));
        else if (!text.empty())
            output.line(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
    });
}

// Nothing if the daemon does not list them as zansim does.
std::optional<std::vector<Instance>> instances_of(Session &session, const std::string &path) {
    try {
        return parse_instances(ask(session, ZAN_CFG_GET_ARRAY, path));
    } catch (const Refusal &) {
        return std::nullopt;
    }
}

// The only instance of `after` that is not in `before`.  Another module may have added one
// too; then there is no telling which is whose.
std::optional<unsigned> only_new(const std::vector<Instance> &before,
                                 const std::vector<Instance> &after) {
    std::optional<unsigned> found;
    for (const Instance &instance : after) {
        const bool is_old = std::any_of(before.begin(), before.end(), [&](const Instance &other) {
            return other.number == instance.number;
        });
        if (!is_old && found)
            return std::nullopt;
        if (!is_old)
            found = instance.number;
    }
    return found;
}

// The answer to the request carries no number, so the lists before and after are compared.
std::optional<unsigned> add_instance(Session &session, const std::string &path) {
    if (const std::optional<unsigned> number = instance_number(path)) {
        ask(session, ZAN_CFG_ANCHOR, path);
        return number;
    }
    const auto before = instances_of(session, path);
    ask(session, ZAN_CFG_ANCHOR, path);
    const auto after = before ? instances_of(session, path) : std::nullopt;
    return after ? only_new(*before, *after) : std::nullopt;
}

ExitCode run_add(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        const std::optional<unsigned> number = add_instance(session, path);
        Json json = {{"path", path}, {"added", true}};
        if (number)
            json["number"] = *number;
        if (options.json())
            output.line(to_line(json));
        else if (number)
            output.line(std::to_string(*number));
        else
            report(path + ": added, but the daemon does not tell its number");
    });
}

ExitCode run_del(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        ask(session, ZAN_CFG_DELETE, path);
        print_json(output, options, {{"path", path}, {"deleted", true}});
    });
}

// ---- watch

void define_watch(CLI::App &app, ArrivalOptions &options) {
    add_paths(app, options.paths)->description("Values or subtrees to watch");
    add_arrival_options(app, options);
    app.parse_complete_callback([&options] {
        if (options.paths.empty() && options.events.empty())
            throw CLI::RequiredError("PATH or --event");
    });
}

// ---- attributes

struct AttrSetOptions : PathOptions {
    std::string attributes;
};

void define_attr_set(CLI::App &app, AttrSetOptions &options) {
    add_path(app, options.path);
    app.add_option("TEXT", options.attributes, "The attributes, in the daemon's form")
        ->option_text(" ")
        ->required();
    app.parse_complete_callback(
        [&options] { check_together(options.path, options.attributes, max_attributes); });
}

ExitCode run_attr_get(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        const std::string text = ask(session, ZAN_CFG_GET_ATTR, path);
        print(output, options, text, {{"path", path}, {"attributes", text}});
    });
}

ExitCode run_attr_set(Session &session, const AttrSetOptions &options, Output &output) {
    return attempt(output, options, options.path, [&] {
        ask(session, ZAN_CFG_SET_ATTR, options.path + " " + options.attributes);
        print_json(output, options, {{"path", options.path}, {"attributes", options.attributes}});
    });
}

// ---- the tree as a whole

struct DumpOptions : Options {
    std::string file;
    int mode = 0;
};

void define_dump(CLI::App &app, DumpOptions &options) {
    app.add_option("FILE", options.file, "The file, which the daemon opens")
        ->option_text(" ")
        ->required()
        ->check(check_file_name);
    add_mode(app, options.mode);
}

ExitCode run_dump(Session &session, const DumpOptions &options, Output &output) {
    return attempt(output, options, options.file, [&] {
        ask(session, ZAN_CFG_DUMP, options.file, options.mode);
        print_json(output, options, {{"file", options.file}, {"mode", options.mode}});
    });
}

struct PrintOptions : PathOptions {
    std::string text;
    int mode = 0;
};

void define_print(CLI::App &app, PrintOptions &options) {
    add_path(app, options.path);
    app.add_option("TEXT", options.text, "A text for the daemon")->option_text("[]");
    add_mode(app, options.mode);
    app.parse_complete_callback(
        [&options] { check_together(options.path, options.text, max_print); });
}

ExitCode run_print(Session &session, const PrintOptions &options, Output &output) {
    return attempt(output, options, options.path, [&] {
        const std::string text = options.text.empty() ? "" : " " + options.text;
        ask(session, ZAN_CFG_PRINT, options.path + text, options.mode);
        print_json(output, options, {{"path", options.path}, {"mode", options.mode}});
    });
}

void define_reset(CLI::App &app, PathsOptions &options) {
    define_paths(app, options);
    add_confirmation(app, Confirmation::always);
}

ExitCode run_reset(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        ask(session, ZAN_CFG_RESET, path);
        print_json(output, options, {{"path", path}, {"reset", true}});
    });
}

struct ApplyOptions : Options {
    bool firewall_only = false;
};

void define_apply(CLI::App &app, ApplyOptions &options) {
    app.add_flag("--firewall", options.firewall_only, "Only the firewall settings");
    add_confirmation(app, Confirmation::at_terminal);
}

// The library asks first whether the remote-management client is writing the configuration.
ExitCode run_apply(Session &session, const ApplyOptions &options, Output &output) {
    return attempt(output, options, "apply", [&] {
        session.call(options.firewall_only ? cfg_apply_firewall_event : cfg_apply_all);
        print_json(output, options, {{"applied", options.firewall_only ? "firewall" : "all"}});
    });
}

constexpr Command commands[] = {
    command<define_get, run_get>("get", "Print values"),
    command<define_set, run_set>("set", "Write a value"),
    command<define_paths, run_count>("count", "Print the number of instances of an object"),
    command<define_paths, run_array>("array", "Print all instances of an object"),
    command<define_paths, run_add>("add", "Create an instance and print its number"),
    command<define_paths, run_del>("del", "Delete a node or an instance"),
    command<define_watch, run_watch>("watch", "Print changes and events as they arrive").alone(),
    command_group("attr", "Attributes of nodes"),
    command<define_paths, run_attr_get>("attr get", "Print attributes"),
    command<define_attr_set, run_attr_set>("attr set", "Write attributes"),
    command<define_dump, run_dump>("dump", "Make the daemon write its tree to a file"),
    command<define_print, run_print>("print",
                                     "Make the daemon print a subtree on its standard output"),
    command<define_reset, run_reset>("reset", "Reset subtrees to their defaults"),
    command<define_apply, run_apply>("apply", "Apply the configuration to the running system"),
};

const FamilyRegistration registration({"Configuration", 10, commands});

} // namespace
} // namespace zan::ctl::tree_commands
