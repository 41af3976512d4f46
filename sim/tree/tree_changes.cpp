// SPDX-License-Identifier: MIT
#include "tree/tree_changes.h"

namespace zan::sim {

namespace {

class Comparison {
public:
    void objects(const Object &before, const Object &after, const std::string &path) {
        for (const Child &child : before.children) {
            const std::string child_path = path + '/' + child.name;
            if (const Child *const other = after.find(child.name))
                nodes(child.node, other->node, child_path);
            else
                note(child_path, ChangeKind::deleted);
        }
        for (const Child &child : after.children) {
            if (before.find(child.name) == nullptr)
                appeared(child.node, path + '/' + child.name);
        }
    }

    std::vector<TreeChange> found;

private:
    void nodes(const Node &before, const Node &after, const std::string &path) {
        if (before.index() != after.index()) {
            note(path, ChangeKind::deleted);
            return appeared(after, path);
        }
        if (const Leaf *const leaf = std::get_if<Leaf>(&after)) {
            if (std::get<Leaf>(before).value != leaf->value)
                note(path, ChangeKind::value, leaf->value);
        } else if (const Object *const object = std::get_if<Object>(&after)) {
            objects(std::get<Object>(before), *object, path);
        } else {
            tables(std::get<Table>(before), std::get<Table>(after), path);
        }
    }

    void tables(const Table &before, const Table &after, const std::string &path) {
        for (const auto &[number, instance] : before.instances) {
            const std::string instance_path = path + ':' + std::to_string(number);
            const auto other = after.instances.find(number);
            if (other != after.instances.end())
                objects(instance, other->second, instance_path);
            else
                note(instance_path, ChangeKind::deleted);
        }
        for (const auto &[number, instance] : after.instances) {
            if (!before.instances.contains(number))
                note(path + ':' + std::to_string(number), ChangeKind::added);
        }
    }

    void appeared(const Node &node, const std::string &path) {
        if (const Leaf *const leaf = std::get_if<Leaf>(&node)) {
            note(path, ChangeKind::value, leaf->value);
        } else if (const Object *const object = std::get_if<Object>(&node)) {
            for (const Child &child : object->children)
                appeared(child.node, path + '/' + child.name);
        } else {
            for (const auto &[number, instance] : std::get<Table>(node).instances)
                note(path + ':' + std::to_string(number), ChangeKind::added);
        }
    }

    void note(const std::string &path, ChangeKind kind, const std::string &value = {}) {
        found.push_back({path, kind, value});
    }
};

} // namespace

std::vector<TreeChange> changes_between(const Tree &before, const Tree &after) {
    Comparison comparison;
    comparison.objects(before.root(), after.root(), "");
    return std::move(comparison.found);
}

} // namespace zan::sim
