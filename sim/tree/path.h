// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// One element of a path: "user", "user:3" or, in a pattern, "user:#".
struct Element {
    std::string name;
    std::uint32_t instance = 0; // 0 if not given
    bool any_instance = false;

    bool operator==(const Element &) const = default;
};

// The elements of "/sys/user:3/name"; none for "/".
using Path = std::vector<Element>;

// An instance number is 1 to 2147483647 without leading zeros.
inline constexpr std::uint32_t last_instance = 2147483647;

// zansim's own branch "/zansim", which a tree file must not contain.
inline constexpr std::string_view reserved_branch = "zansim";

// Whether the path is that branch or leads into it.
bool is_reserved(std::string_view path);

bool is_name(std::string_view name);

// The path of one node.
Result<Path> parse_path(std::string_view text);

// A subscribed path, in which "#" matches any instance number.
Result<Path> parse_pattern(std::string_view text);

// Whether the pattern matches the path or a prefix of it, element by element.  An
// element of the pattern without an instance number matches every instance.
bool covers(const Path &pattern, const Path &path);

// Whether the pattern matches the path or something below it.
bool reaches_into(const Path &pattern, const Path &path);

} // namespace zan::sim
