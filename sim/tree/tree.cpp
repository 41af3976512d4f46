// SPDX-License-Identifier: MIT
#include "tree/tree.h"

#include "base/text.h"

#include <algorithm>

namespace zan::sim {

namespace {

Error refused(Code code, const std::string &why, std::string_view path) {
    return {code, why + ": " + escape(path)};
}

// Where a path leads.  An instance is reached through its table.
template<bool is_const> struct BasicPlace {
    template<typename T> using Ptr = std::conditional_t<is_const, const T *, T *>;

    Ptr<Object> parent = nullptr; // the object that holds the leaf, object or table
    Ptr<Leaf> leaf = nullptr;
    Ptr<Object> object = nullptr; // a plain object or an instance
    Ptr<Table> table = nullptr;   // a table, or the table of the instance
    std::uint32_t instance = 0;
};

// One step down from an object.
template<bool is_const>
Result<BasicPlace<is_const>> step(typename BasicPlace<is_const>::template Ptr<Object> parent,
                                  const Element &element, std::string_view path) {
    auto *const child = parent->find(element.name);
    if (child == nullptr)
        return refused(no_node, "no such node", path);
    BasicPlace<is_const> place;
    place.parent = parent;
    place.leaf = std::get_if<Leaf>(&child->node);
    place.object = std::get_if<Object>(&child->node);
    place.table = std::get_if<Table>(&child->node);
    if (element.instance == 0)
        return place;
    if (place.table == nullptr)
        return refused(not_a_table, "not a multi-instance object", path);
    const auto found = place.table->instances.find(element.instance);
    if (found == place.table->instances.end())
        return refused(no_instance, "no such instance", path);
    place.object = &found->second;
    place.instance = element.instance;
    return place;
}

template<bool is_const>
Result<BasicPlace<is_const>> locate(typename BasicPlace<is_const>::template Ptr<Object> root,
                                    const Path &elements, std::string_view path) {
    BasicPlace<is_const> place;
    place.object = root;
    for (const Element &element : elements) {
        if (place.object == nullptr && place.table != nullptr)
            return refused(no_instance, "instance number missing", path);
        if (place.object == nullptr)
            return refused(no_node, "no such node", path);
        auto next = step<is_const>(place.object, element, path);
        if (!next)
            return next.error();
        place = *next;
    }
    return place;
}

Result<BasicPlace<true>> locate_in(const Object &root, std::string_view path) {
    const auto elements = parse_path(path);
    if (!elements)
        return elements.error();
    return locate<true>(&root, *elements, path);
}

Result<BasicPlace<false>> locate_in(Object &root, std::string_view path) {
    const auto elements = parse_path(path);
    if (!elements)
        return elements.error();
    return locate<false>(&root, *elements, path);
}

std::size_t parameters_in(const Object &object);

struct ParameterCount {
    std::size_t operator()(const Leaf &) const { return 1; }
    std::size_t operator()(const Object &object) const { return parameters_in(object); }
    std::size_t operator()(const Table &table) const {
        std::size_t count = 0;
        for (const auto &[number, instance] : table.instances)
            count += parameters_in(instance);
        return count;
    }
};

std::size_t parameters_in(const Object &object) {
    std::size_t count = 0;
    for (const Child &child : object.children)
        count += std::visit(ParameterCount{}, child.node);
    return count;
}

// Collects parameters; the path is that of the node it is called with.
class Listing {
public:
    Listing(std::vector<Parameter> &found, std::size_t depth) : found_(found), depth_(depth) {}

    void node(const Node &node, const std::string &path, std::size_t level) {
        std::visit([&](const auto &kind) { enter(kind, path, level); }, node);
    }
    void enter(const Leaf &leaf, const std::string &path, std::size_t) {
        found_.push_back({path, leaf.value});
    }
    void enter(const Object &object, const std::string &path, std::size_t level) {
        if (depth_ != 0 && level == depth_)
            return;
        for (const Child &child : object.children)
            node(child.node, path + '/' + child.name, level + 1);
    }
    void enter(const Table &table, const std::string &path, std::size_t level) {
        for (const auto &[number, instance] : table.instances)
            enter(instance, path + ':' + std::to_string(number), level);
    }

private:
    std::vector<Parameter> &found_;
    std::size_t depth_;
};

// Where a node of any kind keeps its attributes.
template<bool is_const> auto &attributes_at(const BasicPlace<is_const> &place) {
    if (place.leaf != nullptr)
        return place.leaf->attributes;
    return place.object != nullptr ? place.object->attributes : place.table->attributes;
}

struct HoldsReadOnly {
    bool operator()(const Leaf &leaf) const { return !leaf.writable; }
    bool operator()(const Object &object) const {
        return std::any_of(object.children.begin(), object.children.end(),
                           [this](const Child &child) { return std::visit(*this, child.node); });
    }
    bool operator()(const Table &table) const {
        return !table.writable ||
               std::any_of(table.instances.begin(), table.instances.end(),
                           [this](const auto &entry) { return (*this)(entry.second); });
    }
};

std::uint32_t lowest_free(const Table &table) {
    std::uint32_t free = 1;
    for (const auto &[number, instance] : table.instances) {
        if (number != free)
            break;
        ++free;
    }
    return free;
}

Result<Done> may_add(const Table &table, std::uint32_t number, std::string_view path) {
    if (!table.writable)
        return refused(read_only, "read-only", path);
    if (!table.prototype)
        return refused(cannot_add, "no template for a new instance", path);
    if (table.instances.contains(number))
        return refused(instance_exists, "instance exists", path);
    if (table.instances.size() >= table.limit)
        return refused(cannot_add, "already " + std::to_string(table.limit) + " instances", path);
    return Done{};
}

} // namespace

const Child *Object::find(std::string_view name) const {
    const auto found = std::find_if(children.begin(), children.end(),
                                    [&](const Child &child) { return child.name == name; });
    return found == children.end() ? nullptr : &*found;
}

Child *Object::find(std::string_view name) {
    return const_cast<Child *>(std::as_const(*this).find(name));
}

std::string parameter_lines(const std::vector<Parameter> &parameters) {
    std::string lines;
    for (const Parameter &parameter : parameters)
        lines += parameter.path + '=' + escape(parameter.value) + '\n';
    return lines;
}

std::size_t Tree::parameter_count() const {
    return parameters_in(root_);
}

Result<std::string> Tree::get(std::string_view path) const {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    if (place->leaf == nullptr)
        return refused(not_a_value, "not a value", path);
    return place->leaf->value;
}

Result<std::uint32_t> Tree::count(std::string_view path) const {
    const auto numbers = instances(path);
    if (!numbers)
        return numbers.error();
    return static_cast<std::uint32_t>(numbers->size());
}

Result<std::vector<std::uint32_t>> Tree::instances(std::string_view path) const {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    if (place->table == nullptr || place->instance != 0)
        return refused(not_a_table, "not a multi-instance object", path);
    std::vector<std::uint32_t> numbers;
    for (const auto &[number, instance] : place->table->instances)
        numbers.push_back(number);
    return numbers;
}

Result<std::string> Tree::render(std::string_view path) const {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    if (place->table == nullptr || place->instance != 0)
        return refused(not_a_table, "not a multi-instance object", path);
    std::string text;
    for (const auto &[number, instance] : place->table->instances) {
        text += std::to_string(number);
        for (const Child &child : instance.children) {
            if (const Leaf *const leaf = std::get_if<Leaf>(&child.node))
                text += ' ' + child.name + '=' + encode_field(leaf->value);
        }
        text += '\n';
    }
    return text;
}

Result<std::vector<Parameter>> Tree::list(std::string_view path, std::size_t depth) const {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    std::vector<Parameter> found;
    Listing listing(found, depth);
    const std::string start(path == "/" ? "" : path);
    if (place->leaf != nullptr)
        listing.enter(*place->leaf, start, 0);
    else if (place->object != nullptr)
        listing.enter(*place->object, start, 0);
    else
        listing.enter(*place->table, start, 0);
    return found;
}

Result<std::string> Tree::attributes(std::string_view path) const {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    return attributes_at(*place);
}

Result<Done> Tree::set_attributes(std::string_view path, std::string_view text) {
    const auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    attributes_at(*place) = text;
    return Done{};
}

Result<std::optional<std::string>> Tree::set(std::string_view path, std::string_view value) {
    auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    Leaf *const leaf = place->leaf;
    if (leaf == nullptr)
        return refused(not_a_value, "not a value", path);
    if (!leaf->writable)
        return refused(read_only, "read-only", path);
    auto accepted = accepted_value(*leaf, value);
    if (!accepted)
        return refused(static_cast<Code>(accepted.error().code), accepted.error().text, path);
    if (leaf->value == *accepted)
        return std::optional<std::string>();
    leaf->value = *accepted;
    return std::optional(std::move(*accepted));
}

Result<std::string> Tree::add(std::string_view path) {
    auto elements = parse_path(path);
    if (!elements)
        return elements.error();
    std::uint32_t number = 0;
    std::string_view table_path = path;
    if (!elements->empty()) {
        number = std::exchange(elements->back().instance, 0);
        if (number != 0)
            table_path = path.substr(0, path.rfind(':'));
    }
    auto place = locate<false>(&root_, *elements, path);
    if (!place)
        return place.error();
    if (place->table == nullptr)
        return refused(not_a_table, "not a multi-instance object", path);
    Table &table = *place->table;
    if (number == 0)
        number = lowest_free(table);
    if (const auto allowed = may_add(table, number, path); !allowed)
        return allowed.error();
    table.instances.emplace(number, *table.prototype);
    return std::string(table_path) + ':' + std::to_string(number);
}

Result<Done> Tree::remove(std::string_view path) {
    auto place = locate_in(root_, path);
    if (!place)
        return place.error();
    if (place->parent == nullptr)
        return refused(read_only, "read-only", path);
    if (place->instance != 0) {
        if (!place->table->writable)
            return refused(read_only, "read-only", path);
        place->table->instances.erase(place->instance);
        return Done{};
    }
    auto &siblings = place->parent->children;
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const auto child = std::find_if(siblings.begin(), siblings.end(),
                                    [&](const Child &sibling) { return sibling.name == name; });
    if (std::visit(HoldsReadOnly{}, child->node))
        return refused(read_only, "read-only", path);
    siblings.erase(child);
    return Done{};
}

Result<Done> Tree::reset(std::string_view path, const Tree &defaults) {
    auto elements = parse_path(path);
    if (!elements)
        return elements.error();
    const auto wanted = locate<true>(&defaults.root_, *elements, path);
    if (!wanted)
        return wanted.error();
    if (elements->empty()) {
        root_ = defaults.root_;
        return Done{};
    }
    const Element last = elements->back();
    elements->pop_back();
    const auto above = locate<false>(&root_, *elements, path);
    if (!above)
        return above.error();
    if (above->object == nullptr)
        return refused(no_node, "no such node", path);
    Child *const child = above->object->find(last.name);
    if (last.instance != 0) {
        Table *const table = child == nullptr ? nullptr : std::get_if<Table>(&child->node);
        if (table == nullptr)
            return refused(no_node, "no such node", path);
        table->instances[last.instance] = *wanted->object;
    } else if (child != nullptr) {
        child->node = wanted->parent->find(last.name)->node;
    } else {
        above->object->children.push_back(*wanted->parent->find(last.name));
    }
    return Done{};
}

} // namespace zan::sim
