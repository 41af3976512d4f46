// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "tree/path.h"
#include "tree/value.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zan::sim {

struct Child;

// A node with named children, in the order in which they were written.
struct Object {
    std::vector<Child> children;
    std::string attributes;

    const Child *find(std::string_view name) const;
    Child *find(std::string_view name);
};

// A multi-instance object.  A number stays with its instance when others go;
// a new instance takes the lowest number that is free.
struct Table {
    std::map<std::uint32_t, Object> instances;
    std::optional<Object> prototype; // what a new instance starts as
    std::uint32_t limit = 1024;      // on the number of instances
    bool writable = true;            // instances may come and go
    std::string attributes;
};

using Node = std::variant<Leaf, Object, Table>;

struct Child {
    std::string name;
    Node node;
};

// A parameter by its path.
struct Parameter {
    std::string path;
    std::string value;
};

// A line for each, PATH=VALUE with control characters as escapes.
std::string parameter_lines(const std::vector<Parameter> &parameters);

// The configuration tree.  Paths are texts as modules send them; every error
// text names the path.
class Tree {
public:
    Tree() = default;
    explicit Tree(Object root) : root_(std::move(root)) {}

    const Object &root() const { return root_; }

    // Parameters, those of instances included, those of prototypes not.
    std::size_t parameter_count() const;

    Result<std::string> get(std::string_view path) const;

    // The number of instances of a table.
    Result<std::uint32_t> count(std::string_view path) const;

    // Their numbers.
    Result<std::vector<std::uint32_t>> instances(std::string_view path) const;

    // One line per instance, "N name=value name=value" with the parameters of the
    // instance itself, values as encode_field() writes them.
    Result<std::string> render(std::string_view path) const;

    // The parameters at and below a path, in the order of the tree; those at most so
    // many levels below it when depth is not 0.
    Result<std::vector<Parameter>> list(std::string_view path, std::size_t depth = 0) const;

    // A text that belongs to a node of any kind and has no effect on it; empty until
    // it is set.
    Result<std::string> attributes(std::string_view path) const;
    Result<Done> set_attributes(std::string_view path, std::string_view text);

    // Stores a value.  The value as stored when it is another than before,
    // nothing when the parameter had it already.
    Result<std::optional<std::string>> set(std::string_view path, std::string_view value);

    // Adds an instance to a table, under the number that the path ends with or
    // under the lowest free one.  The path of the new instance.
    Result<std::string> add(std::string_view path);

    // Deletes an instance, or a parameter or object that holds nothing read-only.
    Result<Done> remove(std::string_view path);

    // Makes what lies at and below the path as it is in another tree, which has it.
    Result<Done> reset(std::string_view path, const Tree &defaults);

private:
    Object root_;
};

} // namespace zan::sim
