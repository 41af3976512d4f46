// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

enum class ValueType { string, integer, unsigned_integer, boolean };

// The names used in tree files.
std::string_view type_name(ValueType type);
std::optional<ValueType> type_by_name(std::string_view name);

// A parameter: its value as text, and what values it accepts.
struct Leaf {
    std::string value;
    ValueType type = ValueType::string;
    bool writable = true;
    std::optional<std::size_t> max_length; // of a string, in bytes
    std::optional<std::int64_t> least;     // of a number
    std::optional<std::int64_t> most;
    std::vector<std::string> choices; // any value when empty
    std::string attributes;           // of the node: any text
};

// The canonical form of an accepted value ("007" is stored as "7"), or why it is
// refused.  Error texts do not contain the path.
Result<std::string> accepted_value(const Leaf &leaf, std::string_view text);

} // namespace zan::sim
