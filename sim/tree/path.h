// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// One step of a path: "user", "user:3" or, in a pattern, "user:#".
struct Element {
    std::string name;
    std::uint32_t instance = 0; // 0: none given
    bool any_instance = false;

    bool operator==(const Element &) const = default;
};

// "/sys/user:3/name" taken apart; no elements for "/".
using Path = std::vector<Element>;

// An instance number is 1 to 2147483647 without leading zeros.
inline constexpr std::uint32_t last_instance = 2147483647;

bool is_name(std::string_view name);

// The path of one node.
Result<Path> parse_path(std::string_view text);

// A subscribed path, where "#" may stand for an instance number.
Result<Path> parse_pattern(std::string_view text);

// Whether the pattern is the path or leads to it element by element.  An element
// of the pattern without an instance number covers every instance.
bool covers(const Path &pattern, const Path &path);

// Whether something that the pattern matches lies at or below the path.
bool reaches_into(const Path &pattern, const Path &path);

} // namespace zan::sim
