// SPDX-License-Identifier: MIT
#include "tree/tree_file.h"

#include "base/file.h"
#include "base/text.h"

#include <nlohmann/json.hpp>
#include <zan.h>

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>

namespace zan::sim {

namespace {

// Members in the order of the file, so that a saved file reads like the one it
// came from.
using Json = nlohmann::ordered_json;

constexpr int deepest = 64;
// An error in the content of a tree file; what() names the node.
struct TreeFileError : std::runtime_error {
    TreeFileError(const std::string &path, const std::string &why)
        : std::runtime_error((path.empty() ? "/" : path) + ": " + why) {}
};

// ---------------------------------------------------------------------------
// Reading

// The parser would keep the last of two members of one name without a word.
class MemberCheck {
public:
    bool operator()(int depth, Json::parse_event_t event, const Json &parsed) {
        if (depth > deepest)
            throw std::runtime_error("nested deeper than " + std::to_string(deepest));
        if (event == Json::parse_event_t::object_start)
            open_.emplace_back();
        else if (event == Json::parse_event_t::object_end)
            open_.pop_back();
        else if (event == Json::parse_event_t::key && !open_.back().insert(parsed).second)
            throw std::runtime_error("two members named " + parsed.dump());
        return true;
    }

private:
    std::vector<std::set<std::string>> open_;
};

void allow_only(const Json &object, std::initializer_list<std::string_view> known,
                const std::string &path) {
    for (const auto &[name, value] : object.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end())
            throw TreeFileError(path, "unknown property \"" + name + "\"");
    }
}

std::int64_t whole_number(const Json &value, const std::string &path, const std::string &property) {
    if (!value.is_number_integer())
        throw TreeFileError(path, property + " is not a whole number");
    // The upper half of 64 bits would become negative.
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max())
        throw TreeFileError(path, property + " is too large a number");
    return value.get<std::int64_t>();
}

bool writable_from(const Json &properties, const std::string &path) {
    const auto access = properties.find("$access");
    if (access == properties.end() || *access == "rw")
        return true;
    if (*access != "ro")
        throw TreeFileError(path, "$access is neither \"ro\" nor \"rw\"");
    return false;
}

ValueType inferred_type(const Json &value) {
    if (value.is_boolean())
        return ValueType::boolean;
    if (!value.is_number())
        return ValueType::string;
    const bool large = value.is_number_unsigned() && value.get<std::uint64_t>() > 2147483647;
    return large ? ValueType::unsigned_integer : ValueType::integer;
}

std::string text_of(const Json &value, const std::string &path) {
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_boolean())
        return value.get<bool>() ? "1" : "0";
    if (value.is_number_integer())
        return value.dump();
    throw TreeFileError(path,
                        value.is_number() ? "not a whole number" : "not a text, number or boolean");
}

std::string attributes_from(const Json &properties, const std::string &path) {
    const auto attributes = properties.find("$attr");
    if (attributes == properties.end())
        return {};
    if (!attributes->is_string())
        throw TreeFileError(path, "$attr is not a text");
    return attributes->get<std::string>();
}

Leaf leaf_from(const Json &value, const Json &properties, const std::string &path) {
    Leaf leaf;
    leaf.type = inferred_type(value);
    if (const auto type = properties.find("$type"); type != properties.end()) {
        const auto named =
            type->is_string() ? type_by_name(type->get<std::string>()) : std::nullopt;
        if (!named)
            throw TreeFileError(path, "$type is none of string, int, uint, bool");
        leaf.type = *named;
    }
    leaf.writable = writable_from(properties, path);
    if (const auto max = properties.find("$max"); max != properties.end()) {
        const std::int64_t length = whole_number(*max, path, "$max");
        if (length < 0 || length > ZAN_DATA_SIZE)
            throw TreeFileError(path, "$max is not 0 to " + std::to_string(ZAN_DATA_SIZE));
        leaf.max_length = static_cast<std::size_t>(length);
    }
    if (const auto range = properties.find("$range"); range != properties.end()) {
        if (!range->is_array() || range->size() != 2)
            throw TreeFileError(path, "$range is not [least, most]");
        leaf.least = whole_number((*range)[0], path, "$range");
        leaf.most = whole_number((*range)[1], path, "$range");
    }
    if (const auto choices = properties.find("$enum"); choices != properties.end()) {
        if (!choices->is_array() || choices->empty())
            throw TreeFileError(path, "$enum is not a list of values");
        for (const Json &choice : *choices)
            leaf.choices.push_back(text_of(choice, path));
    }
    leaf.attributes = attributes_from(properties, path);
    const auto accepted = accepted_value(leaf, text_of(value, path));
    if (!accepted)
        throw TreeFileError(path, accepted.error().text);
    leaf.value = *accepted;
    return leaf;
}

Node node_from(const Json &json, const std::string &path);

Object object_from(const Json &json, const std::string &path) {
    if (!json.is_object())
        throw TreeFileError(path, "not an object");
    Object object;
    object.attributes = attributes_from(json, path);
    for (const auto &[name, value] : json.items()) {
        if (name == "$attr")
            continue;
        if (!is_name(name) || name[0] == '$')
            throw TreeFileError(path, "\"" + escape(name) + "\" cannot be the name of a node");
        object.children.push_back({name, node_from(value, path + '/' + name)});
    }
    return object;
}

void add_instance(Table &table, std::int64_t number, const Json &json, const std::string &path) {
    const std::string instance_path = path + ':' + std::to_string(number);
    table.instances.emplace(static_cast<std::uint32_t>(number), object_from(json, instance_path));
}

void add_instances(Table &table, const Json &instances, const std::string &path) {
    if (instances.is_array()) {
        std::int64_t number = 0;
        for (const Json &instance : instances)
            add_instance(table, ++number, instance, path);
        return;
    }
    if (!instances.is_object())
        throw TreeFileError(path, "$instances is neither a list nor an object");
    for (const auto &[key, instance] : instances.items()) {
        const auto number = to_number(key);
        if (!number || *number < 1 || *number > last_instance || key[0] == '0')
            throw TreeFileError(path, "\"" + escape(key) + "\" is not an instance number");
        add_instance(table, *number, instance, path);
    }
}

Table table_from(const Json &json, const std::string &path) {
    Table table;
    if (json.is_array()) {
        add_instances(table, json, path);
        return table;
    }
    allow_only(json, {"$instances", "$template", "$max", "$access", "$attr"}, path);
    table.writable = writable_from(json, path);
    table.attributes = attributes_from(json, path);
    if (const auto max = json.find("$max"); max != json.end()) {
        const std::int64_t limit = whole_number(*max, path, "$max");
        if (limit < 0 || limit > last_instance)
            throw TreeFileError(path, "$max is not a number of instances");
        table.limit = static_cast<std::uint32_t>(limit);
    }
    if (const auto prototype = json.find("$template"); prototype != json.end())
        table.prototype = object_from(*prototype, path + ":#");
    add_instances(table, json.at("$instances"), path);
    return table;
}

Node node_from(const Json &json, const std::string &path) {
    if (json.is_array() || (json.is_object() && json.contains("$instances")))
        return table_from(json, path);
    if (!json.is_object())
        return leaf_from(json, Json::object(), path);
    if (!json.contains("$value"))
        return object_from(json, path);
    allow_only(json, {"$value", "$type", "$access", "$max", "$range", "$enum", "$attr"}, path);
    return leaf_from(json.at("$value"), json, path);
}

// "12:5" for the byte at which the parser stopped.
std::string position_of(std::string_view text, std::size_t byte) {
    const std::string_view before = text.substr(0, byte == 0 ? 0 : byte - 1);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t line_start = before.rfind('\n') + 1; // 0 when there is none
    return std::to_string(lines + 1) + ':' + std::to_string(before.size() - line_start + 1);
}

// ---------------------------------------------------------------------------
// Writing

Json json_of(const Object &object);

Json json_of(const std::string &value, ValueType type) {
    // JSON is UTF-8, values need not be.  A replacement must not be longer, or the value
    // might be too long to be read again.
    if (type == ValueType::string)
        return as_utf8(value);
    if (type == ValueType::boolean)
        return value == "1";
    return to_number(value).value_or(0);
}

// A plain value would lose its type and limits.
Json json_of(const Leaf &leaf) {
    const Json value = json_of(leaf.value, leaf.type);
    Json json{{"$value", value}};
    if (inferred_type(value) != leaf.type)
        json["$type"] = type_name(leaf.type);
    if (!leaf.writable)
        json["$access"] = "ro";
    if (leaf.max_length)
        json["$max"] = *leaf.max_length;
    if (leaf.least && leaf.most)
        json["$range"] = Json::array({*leaf.least, *leaf.most});
    for (const std::string &choice : leaf.choices)
        json["$enum"].push_back(json_of(choice, leaf.type));
    if (!leaf.attributes.empty())
        json["$attr"] = as_utf8(leaf.attributes);
    return json.size() == 1 ? value : json;
}

Json json_of(const Table &table) {
    const bool plain = !table.prototype && table.writable && table.limit == Table{}.limit &&
                       table.attributes.empty();
    const bool contiguous =
        table.instances.empty() || table.instances.rbegin()->first == table.instances.size();
    Json instances = contiguous ? Json::array() : Json::object();
    for (const auto &[number, instance] : table.instances) {
        if (contiguous)
            instances.push_back(json_of(instance));
        else
            instances[std::to_string(number)] = json_of(instance);
    }
    if (plain && contiguous)
        return instances;
    Json json{{"$instances", std::move(instances)}};
    if (table.prototype)
        json["$template"] = json_of(*table.prototype);
    if (table.limit != Table{}.limit)
        json["$max"] = table.limit;
    if (!table.writable)
        json["$access"] = "ro";
    if (!table.attributes.empty())
        json["$attr"] = as_utf8(table.attributes);
    return json;
}

Json json_of(const Object &object) {
    Json json = Json::object();
    if (!object.attributes.empty())
        json["$attr"] = as_utf8(object.attributes);
    for (const Child &child : object.children)
        json[child.name] = std::visit([](const auto &node) { return json_of(node); }, child.node);
    return json;
}

// One line per parameter, so that saved trees are easy to read and compare.
std::string one_line(const Json &json) {
    std::string text;
    for (const auto &[key, value] : json.items()) {
        text += text.empty() ? "" : ", ";
        text += json.is_object() ? Json(key).dump() + ": " : "";
        text += value.is_structured() ? one_line(value) : value.dump();
    }
    return json.is_object() ? '{' + text + '}' : '[' + text + ']';
}

void append_json(std::string &text, const Json &json, std::size_t depth) {
    if (!json.is_structured() || json.empty()) {
        text += json.dump();
        return;
    }
    if (json.contains("$value")) {
        text += one_line(json);
        return;
    }
    text += json.is_object() ? '{' : '[';
    const char *separator = "\n";
    for (const auto &[key, value] : json.items()) {
        text += separator + std::string(2 * depth + 2, ' ');
        text += json.is_object() ? Json(key).dump() + ": " : "";
        append_json(text, value, depth + 1);
        separator = ",\n";
    }
    text += '\n' + std::string(2 * depth, ' ') + (json.is_object() ? '}' : ']');
}

} // namespace

Result<Tree> parse_tree(std::string_view text, const std::string &file) {
    try {
        MemberCheck check;
        const Json json = Json::parse(text, std::ref(check));
        Object root = object_from(json, "");
        if (root.find(reserved_branch) != nullptr)
            throw TreeFileError('/' + std::string(reserved_branch), "this branch is zansim's own");
        return Tree(std::move(root));
    } catch (const Json::parse_error &error) {
        // The text of the JSON library begins with its own code and position.
        const std::string what = error.what();
        const std::size_t start = what.find(": ");
        return Error{0, file + ':' + position_of(text, error.byte) + ": " +
                            (start == std::string::npos ? what : what.substr(start + 2))};
    } catch (const std::exception &error) {
        return Error{0, file + ": " + error.what()};
    }
}

Result<Tree> load_tree(const std::string &file) {
    const auto text = load_file(file);
    if (!text)
        return text.error();
    return parse_tree(*text, file);
}

std::string format_tree(const Tree &tree) {
    std::string text;
    append_json(text, json_of(tree.root()), 0);
    return text + '\n';
}

} // namespace zan::sim
