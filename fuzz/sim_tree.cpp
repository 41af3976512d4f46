// SPDX-License-Identifier: MIT
//
// zansim's tree files, and what modules ask of the tree that was read.
//
// An input is the text of a file, up to its first NUL, and a row of requests: a byte
// for the kind, a path and a value, each up to a NUL.  A tree must come back from the
// file that it is saved to, whatever has been asked of it.
#include "base/text.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "tree/tree.h"
#include "tree/tree_changes.h"
#include "tree/tree_file.h"

#include <algorithm>
#include <string>

namespace {

using namespace zan::fuzz;
using namespace zan::sim;

void require_reasoned(const Error &error) {
    require(!error.text.empty(), "the reason of a refusal");
}

template<typename T> bool accepted(const Result<T> &result) {
    if (!result)
        require_reasoned(result.error());
    return static_cast<bool>(result);
}

// Bytes that are not UTF-8 are replaced in a file: what it holds then is another tree,
// but a tree.
bool is_plain(const Tree &tree) {
    const auto all = tree.list("/");
    return std::all_of(all->begin(), all->end(), [](const Parameter &parameter) {
        const auto is_ascii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
        return std::all_of(parameter.path.begin(), parameter.path.end(), is_ascii) &&
               std::all_of(parameter.value.begin(), parameter.value.end(), is_ascii);
    });
}

void require_saved(const Tree &tree) {
    const std::string text = format_tree(tree);
    const auto again = parse_tree(text, "saved");
    if (!again)
        std::fprintf(stderr, "%s\n%s", again.error().text.c_str(), text.c_str());
    require(static_cast<bool>(again), "a saved tree that can be read");
    require(format_tree(*again) == text, "the text of a tree that was saved and read");
    require(again->parameter_count() == tree.parameter_count(), "the number of parameters");
    if (is_plain(tree))
        require(changes_between(tree, *again).empty(), "the values of a saved tree");
}

void require_listed(const Tree &tree) {
    const auto all = tree.list("/");
    require(all && all->size() == tree.parameter_count(), "the list of all parameters");
    for (const Parameter &parameter : *all) {
        if (parameter.path.size() >= 1024)
            continue; // longer than a path can be
        const auto value = tree.get(parameter.path);
        require(value && *value == parameter.value, "the value of a listed parameter");
    }
}

void ask(Tree &tree, const Tree &defaults, int kind, const std::string &path,
         const std::string &value) {
    switch (kind % 10) {
    case 0:
        accepted(tree.get(path));
        break;
    case 1:
        if (accepted(tree.set(path, value)))
            require(static_cast<bool>(tree.get(path)), "a value that was set");
        break;
    case 2:
        if (const auto added = tree.add(path); accepted(added))
            require(static_cast<bool>(tree.list(*added)), "an instance that was added");
        break;
    case 3:
        if (accepted(tree.remove(path)))
            require(!tree.get(path), "a node that was removed");
        break;
    case 4:
        accepted(tree.count(path));
        break;
    case 5:
        accepted(tree.instances(path));
        break;
    case 6:
        accepted(tree.render(path));
        break;
    case 7:
        accepted(tree.list(path, value.size()));
        break;
    case 8:
        if (accepted(tree.set_attributes(path, value)))
            require(*tree.attributes(path) == value, "attributes that were set");
        break;
    default:
        accepted(tree.reset(path, defaults));
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    const std::string text = input.text();
    const Block block(text);
    auto tree = parse_tree({block.get(), text.size()}, "input");
    if (!accepted(tree))
        return 0;
    require_saved(*tree);
    require_listed(*tree);
    const Tree defaults = *tree;
    while (!input.empty()) {
        const int kind = input.byte();
        const std::string path = input.text();
        ask(*tree, defaults, kind, path, input.text());
    }
    require_saved(*tree);
    changes_between(defaults, *tree);
    return 0;
}
