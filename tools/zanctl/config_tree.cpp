// SPDX-License-Identifier: MIT
#include "config_tree.h"

#include "error.h"
#include "instance.h"
#include "json.h"

#include <algorithm>
#include <utility>

namespace zan::ctl {
namespace {

// ---- zansim's tree file

std::string scalar_text(const Json &json) {
    if (json.is_string())
        return json.get<std::string>();
    if (json.is_boolean())
        return json.get<bool>() ? "1" : "0";
    return json.dump();
}

bool is_property(const std::string &key) {
    return key.starts_with('$');
}

bool is_read_only(const Json &json) {
    const auto access = json.find("$access");
    return access != json.end() && *access == "ro";
}

ConfigNode to_node(const std::string &name, const Json &json);

std::vector<ConfigNode> to_children(const Json &json) {
    std::vector<ConfigNode> children;
    for (const auto &[key, member] : json.items())
        if (!is_property(key))
            children.push_back(to_node(key, member));
    return children;
}

ConfigNode to_object(const std::string &name, const Json &json) {
    ConfigNode node;
    node.name = name;
    node.children = to_children(json);
    return node;
}

void add_instances(ConfigNode &table, const Json &instances) {
    unsigned next = 1;
    for (const auto &[key, instance] : instances.items()) {
        const unsigned number =
            instances.is_array() ? next++ : instance_number(":" + key).value_or(0);
        if (number == 0 || !instance.is_object())
            throw Refusal("not an instance: " + key);
        table.instances.emplace(number, to_object(table.name, instance));
    }
}

ConfigNode to_node(const std::string &name, const Json &json) {
    ConfigNode node;
    node.name = name;
    if (json.is_array() || (json.is_object() && json.contains("$instances"))) {
        node.kind = ConfigNode::Kind::table;
        add_instances(node, json.is_array() ? json : json["$instances"]);
        if (json.is_object() && json.contains("$template"))
            node.instance_template = to_children(json["$template"]);
        node.writable = !json.is_object() || !is_read_only(json);
    } else if (json.is_object() && !json.contains("$value")) {
        node = to_object(name, json);
    } else {
        node.kind = ConfigNode::Kind::value;
        node.value = scalar_text(json.is_object() ? json["$value"] : json);
        node.writable = !json.is_object() || !is_read_only(json);
    }
    return node;
}

// ---- lines of paths

struct PathElement {
    std::string name;
    std::optional<unsigned> instance;
};

// Nothing if an element is empty or has an instance number that is none.
std::optional<std::vector<PathElement>> split_path(std::string_view path) {
    std::vector<PathElement> elements;
    while (!path.empty()) {
        if (path.front() != '/')
            return std::nullopt;
        path.remove_prefix(1);
        const std::string_view element = path.substr(0, path.find('/'));
        path.remove_prefix(element.size());
        if (element.empty() && path.empty())
            break; // a slash at the end
        const std::size_t colon = element.find(':');
        const std::optional<unsigned> number = instance_number(element);
        if (element.empty() || (colon != std::string_view::npos && !number))
            return std::nullopt;
        elements.push_back({std::string(element.substr(0, colon)), number});
    }
    return elements;
}

ConfigNode *add_child(ConfigNode &parent, const std::string &name) {
    if (ConfigNode *const child = parent.find_child(name))
        return child;
    parent.children.push_back({.name = name});
    return &parent.children.back();
}

void add_line(ConfigNode &root, std::string_view line, std::size_t number) {
    const std::string_view path = line.substr(0, line.find('='));
    const auto elements = split_path(path);
    if (!elements || elements->empty())
        throw Refusal("line " + std::to_string(number) +
                      " is not PATH=VALUE: " + std::string(line.substr(0, 60)));
    ConfigNode *node = &root;
    for (const PathElement &element : *elements) {
        node->kind = ConfigNode::Kind::object;
        node = add_child(*node, element.name);
        if (!element.instance)
            continue;
        node->kind = ConfigNode::Kind::table;
        node = &node->instances.try_emplace(*element.instance, ConfigNode{.name = element.name})
                    .first->second;
    }
    node->kind = ConfigNode::Kind::value;
    if (path.size() < line.size())
        node->value = line.substr(path.size() + 1);
}

ConfigNode parse_lines(std::string_view text) {
    ConfigNode root;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!line.empty() && line.front() != '#')
            add_line(root, line, number);
    }
    return root;
}

} // namespace

ConfigNode *ConfigNode::find_child(std::string_view child_name) {
    const auto found = std::find_if(children.begin(), children.end(), [&](const ConfigNode &child) {
        return child.name == child_name;
    });
    return found == children.end() ? nullptr : &*found;
}

ConfigNode parse_tree(const std::string &text) {
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string::npos || text[start] != '{')
        return parse_lines(text);
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object())
        throw Refusal("not valid JSON");
    return to_object("", json);
}

ConfigPlace find_place(const ConfigNode &root, std::string_view path) {
    const auto elements = split_path(path);
    if (!elements)
        return {};
    ConfigPlace place = {&root, ""};
    for (const PathElement &element : *elements) {
        const auto &children = place.node->children;
        const auto child = std::find_if(children.begin(), children.end(), [&](const auto &node) {
            return node.name == element.name;
        });
        if (child == children.end())
            return {};
        place = {&*child, place.path + "/" + element.name};
        if (!element.instance)
            continue;
        const auto instance = child->instances.find(*element.instance);
        if (instance == child->instances.end())
            return {};
        place = {&instance->second, place.path + ":" + std::to_string(*element.instance)};
    }
    return place;
}

} // namespace zan::ctl
