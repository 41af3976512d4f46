// SPDX-License-Identifier: MIT
#pragma once

#include "path.h"
#include "result.h"
#include "value.h"

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
};

using Node = std::variant<Leaf, Object, Table>;

struct Child {
    std::string name;
    Node node;
};

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

    // One line per instance, "N name=value name=value" with the parameters of the
    // instance itself, values as encode_field() writes them.
    Result<std::string> render(std::string_view path) const;

    // Stores a value.  The value as stored when it is another than before,
    // nothing when the parameter had it already.
    Result<std::optional<std::string>> set(std::string_view path, std::string_view value);

    // Adds an instance to a table, under the number that the path ends with or
    // under the lowest free one.  The path of the new instance.
    Result<std::string> add(std::string_view path);

    // Deletes an instance, or a parameter or object that holds nothing read-only.
    Result<Done> remove(std::string_view path);

private:
    Object root_;
};

} // namespace zan::sim
