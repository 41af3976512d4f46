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

// A node with named children, in file order.
struct Object {
    std::vector<Child> children;
    std::string attributes;

    const Child *find(std::string_view name) const;
    Child *find(std::string_view name);
};

// A multi-instance object.  An instance keeps its number when others are deleted; a new
// instance gets the lowest free number.
struct Table {
    std::map<std::uint32_t, Object> instances;
    std::optional<Object> prototype; // the content of a new instance
    std::uint32_t limit = 1024;      // of instances
    bool writable = true;            // whether instances may be added and deleted
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

// One line per parameter: PATH=VALUE, control characters escaped.
std::string parameter_lines(const std::vector<Parameter> &parameters);

// The configuration tree.  Paths are given as modules send them; every error text
// contains the path.
class Tree {
public:
    Tree() = default;
    explicit Tree(Object root) : root_(std::move(root)) {}

    const Object &root() const { return root_; }

    // Counts parameters, including those of instances but not those of prototypes.
    std::size_t parameter_count() const;

    Result<std::string> get(std::string_view path) const;

    // The number of instances of a table.
    Result<std::uint32_t> count(std::string_view path) const;

    // The numbers of the instances of a table.
    Result<std::vector<std::uint32_t>> instances(std::string_view path) const;

    // One line per instance, "N name=value name=value", with the parameters directly in
    // it, encoded with encode_field().
    Result<std::string> render(std::string_view path) const;

    // The parameters at and below a path, in tree order; if depth is not 0, at most that
    // many levels below it.
    Result<std::vector<Parameter>> list(std::string_view path, std::size_t depth = 0) const;

    // A text stored with a node of any kind, without effect; initially empty.
    Result<std::string> attributes(std::string_view path) const;
    Result<Done> set_attributes(std::string_view path, std::string_view text);

    // Stores a value.  Returns the stored form if it differs from the previous value,
    // nothing otherwise.
    Result<std::optional<std::string>> set(std::string_view path, std::string_view value);

    // Adds an instance to a table, with the number at the end of the path or the lowest
    // free one.  Returns the path of the new instance.
    Result<std::string> add(std::string_view path);

    // Deletes an instance, or a parameter or object without read-only parts.
    Result<Done> remove(std::string_view path);

    // Resets the subtree at the path to its content in another tree.
    Result<Done> reset(std::string_view path, const Tree &defaults);

private:
    Object root_;
};

} // namespace zan::sim
