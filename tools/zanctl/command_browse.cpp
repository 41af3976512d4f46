// SPDX-License-Identifier: MIT
// What is below a path of the configuration tree.
#include "listing.h"
#include "printable.h"
#include "run.h"

#include <cstdint>

namespace zan::ctl::browse_commands {
namespace {

using Kind = ConfigNode::Kind;

struct TreeOptions : ListingOptions {
    std::size_t depth = SIZE_MAX;
};

void define_ls(CLI::App &app, ListingOptions &options) {
    add_listing_options(app, options);
}

void define_tree(CLI::App &app, TreeOptions &options) {
    add_listing_options(app, options);
    app.add_option("--depth", options.depth, "Levels below PATH (default: all)")
        ->option_text("N")
        ->check(CLI::NonNegativeNumber);
}

bool is_instance(const std::string &path) {
    return path.find(':', path.rfind('/') + 1) != std::string::npos;
}

Json to_json(const std::string &path, const ConfigNode &node) {
    const char *const kind = node.kind == Kind::value   ? "value"
                             : node.kind == Kind::table ? "table"
                             : is_instance(path)        ? "instance"
                                                        : "object";
    Json json = {{"path", path.empty() ? "/" : path}, {"kind", kind}};
    if (node.value)
        json["value"] = *node.value;
    if (!node.writable)
        json["access"] = "ro";
    return json;
}

// The last element of the path: "name", "name/" for what has nodes below it, and "name:#/"
// for a multi-instance object without instances.
std::string element_text(const Output &output, const std::string &path, const ConfigNode &node) {
    const std::string name = path.substr(path.rfind('/') + 1);
    if (node.kind == Kind::value)
        return name;
    const std::string text = name + (node.kind == Kind::table ? ":#" : "");
    return colored(output.has_colors(), Color::blue, text) + "/";
}

ExitCode run_ls(Session &session, const ListingOptions &options, Output &output) {
    return attempt(output, options, options.path, [&] {
        const ConfigNode root = load_listing(session, options);
        const ConfigPlace place = find_place(root, options.path);
        if (place.node == nullptr)
            throw Refusal("no such node");
        // A table without instances has nothing to list.
        if (place.node->kind == Kind::table && place.node->instances.empty())
            return;
        const std::size_t listed_depth = place.node->kind == Kind::object ? 1 : 0;
        const auto visit = [&](const std::string &path, const ConfigNode &node, std::size_t depth) {
            if (depth == listed_depth)
                print(output, options, element_text(output, path, node), to_json(path, node));
        };
        visit_tree(root, options.path, listed_depth, visit);
    });
}

ExitCode run_tree(Session &session, const TreeOptions &options, Output &output) {
    const auto visit = [&](const std::string &path, const ConfigNode &node, std::size_t depth) {
        std::string line(2 * depth, ' ');
        if (depth == 0)
            line += path.empty() ? "/" : path;
        else
            line += element_text(output, path, node);
        if (node.value)
            line += " = " + printable(*node.value);
        print(output, options, line, to_json(path, node));
    };
    return attempt(output, options, options.path, [&] {
        const ConfigNode root = load_listing(session, options);
        if (!visit_tree(root, options.path, options.depth, visit))
            throw Refusal("no such node");
    });
}

constexpr Command commands[] = {
    command<define_ls, run_ls>("ls", "List the nodes directly below a path"),
    command<define_tree, run_tree>("tree", "Print all nodes below a path, with their values"),
};

const FamilyRegistration registration({"Browsing", 11, commands});

} // namespace
} // namespace zan::ctl::browse_commands
