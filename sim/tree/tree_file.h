// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "tree/tree.h"

#include <string>
#include <string_view>

namespace zan::sim {

// Tree files are JSON; docs/zansim.md describes what may stand in one.  Error
// texts say where: file:line:column for a slip in the JSON, the path of the node
// for one in the tree.

Result<Tree> parse_tree(std::string_view text, const std::string &file);
Result<Tree> load_tree(const std::string &file);

// A text that parse_tree() makes the same tree of.
std::string format_tree(const Tree &tree);

} // namespace zan::sim
