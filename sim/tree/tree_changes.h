// SPDX-License-Identifier: MIT
#pragma once

#include "tree/tree.h"

#include <string>
#include <vector>

namespace zan::sim {

// What a notification tells of a node; the number is part of its text.
enum class Change { value = 1, added = 2, deleted = 3 };

struct TreeChange {
    std::string path;
    Change kind;
    std::string value; // the new one, when the value changed
};

// What who watches the tree would have been told, had it become the other one step
// by step.  A parameter that is new counts as a changed value.
std::vector<TreeChange> changes_between(const Tree &before, const Tree &after);

} // namespace zan::sim
