// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "tree/tree.h"

#include <string>
#include <string_view>

namespace zan::sim {

// Tree files are JSON; docs/zansim.md describes their content.  Error texts contain
// the place: file:line:column of a syntax error, or the path of the node.

Result<Tree> parse_tree(std::string_view text, const std::string &file);
Result<Tree> load_tree(const std::string &file);

// A text from which parse_tree() makes the same tree.
std::string format_tree(const Tree &tree);

} // namespace zan::sim
