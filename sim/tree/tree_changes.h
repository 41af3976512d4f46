// SPDX-License-Identifier: MIT
#pragma once

#include "tree/tree.h"

#include <string>
#include <vector>

namespace zan::sim {

// What happened to a node; a notification contains the number.
enum class ChangeKind { value = 1, added = 2, deleted = 3 };

struct TreeChange {
    std::string path;
    ChangeKind kind;
    std::string value; // the new one, when the value changed
};

// The notifications a subscriber would have received had the changes been made one at
// a time.  A new parameter counts as a changed value.
std::vector<TreeChange> changes_between(const Tree &before, const Tree &after);

} // namespace zan::sim
