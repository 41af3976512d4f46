// SPDX-License-Identifier: MIT
// A configuration tree in memory, read from a file that the daemon or a person wrote.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zan::ctl {

struct ConfigNode {
    enum class Kind { value, object, table }; // a table is a multi-instance object

    std::string name = {};
    Kind kind = Kind::object;
    std::optional<std::string> value = {}; // nothing for a value that is not known
    bool writable = true;
    std::vector<ConfigNode> children = {};          // of an object
    std::map<unsigned, ConfigNode> instances = {};  // of a table; each is an object
    std::vector<ConfigNode> instance_template = {}; // of a table: what a new instance has

    ConfigNode *find_child(std::string_view child_name);
};

// Parses a tree file of zansim, or lines of the form PATH=VALUE or PATH.  Throws Refusal
// with the line or the cause if the text is neither.
ConfigNode parse_tree(const std::string &text);

// Calls visit(path, node, depth) for every node at and below `path`, each parent first.  A
// table with instances is not visited itself; its instances are.  Returns whether the path
// exists.  `max_depth` limits how far below the path it goes.
template<typename Visit>
bool visit_tree(const ConfigNode &root, std::string_view path, std::size_t max_depth, Visit visit);

// ---- implementation

// The node or instance at a path, and the path without a slash at its end.
struct ConfigPlace {
    const ConfigNode *node = nullptr; // null if there is none
    std::string path;
};
ConfigPlace find_place(const ConfigNode &root, std::string_view path);

template<typename Visit>
void visit_node(const ConfigNode &node, const std::string &path, std::size_t depth,
                std::size_t max_depth, Visit &visit) {
    if (node.kind == ConfigNode::Kind::table && !node.instances.empty()) {
        for (const auto &[number, instance] : node.instances)
            visit_node(instance, path + ":" + std::to_string(number), depth, max_depth, visit);
        return;
    }
    visit(path, node, depth);
    if (depth == max_depth)
        return;
    for (const ConfigNode &child : node.children)
        visit_node(child, path + "/" + child.name, depth + 1, max_depth, visit);
}

template<typename Visit>
bool visit_tree(const ConfigNode &root, std::string_view path, std::size_t max_depth, Visit visit) {
    const ConfigPlace place = find_place(root, path);
    if (place.node != nullptr)
        visit_node(*place.node, place.path, 0, max_depth, visit);
    return place.node != nullptr;
}

} // namespace zan::ctl
