// SPDX-License-Identifier: MIT
#include "tree/value.h"

#include "base/text.h"

#include <zan.h>

#include <algorithm>
#include <array>
#include <limits>

namespace zan::sim {

namespace {

struct TypeRow {
    ValueType type;
    std::string_view name;
    std::int64_t least;
    std::int64_t most;
};

constexpr std::array types{
    TypeRow{ValueType::string, "string", 0, 0},
    TypeRow{ValueType::integer, "int", std::numeric_limits<std::int32_t>::min(),
            std::numeric_limits<std::int32_t>::max()},
    TypeRow{ValueType::unsigned_integer, "uint", 0, std::numeric_limits<std::uint32_t>::max()},
    TypeRow{ValueType::boolean, "bool", 0, 1},
};

const TypeRow &row_of(ValueType type) {
    return types[static_cast<std::size_t>(type)];
}

Result<std::string> accepted_number(const Leaf &leaf, std::string_view text) {
    const TypeRow &row = row_of(leaf.type);
    const auto number = to_number(text);
    const std::int64_t least = std::max(row.least, leaf.least.value_or(row.least));
    const std::int64_t most = std::min(row.most, leaf.most.value_or(row.most));
    if (!number || *number < least || *number > most)
        return Error{bad_value, "value is not " + std::string(row.name) + " from " +
                                    std::to_string(least) + " to " + std::to_string(most)};
    return std::to_string(*number);
}

Result<std::string> accepted_string(const Leaf &leaf, std::string_view text) {
    const std::size_t max = leaf.max_length.value_or(ZAN_DATA_SIZE);
    if (text.size() > max)
        return Error{too_long, "value of " + std::to_string(text.size()) +
                                   " bytes is longer than " + std::to_string(max)};
    return std::string(text);
}

} // namespace

std::string_view type_name(ValueType type) {
    return row_of(type).name;
}

std::optional<ValueType> type_by_name(std::string_view name) {
    const auto row = std::find_if(types.begin(), types.end(),
                                  [&](const TypeRow &candidate) { return candidate.name == name; });
    if (row == types.end())
        return std::nullopt;
    return row->type;
}

Result<std::string> accepted_value(const Leaf &leaf, std::string_view text) {
    auto accepted =
        leaf.type == ValueType::string ? accepted_string(leaf, text) : accepted_number(leaf, text);
    if (!accepted || leaf.choices.empty() ||
        std::find(leaf.choices.begin(), leaf.choices.end(), *accepted) != leaf.choices.end())
        return accepted;
    std::string listed;
    for (const std::string &choice : leaf.choices)
        listed += (listed.empty() ? "" : ", ") + choice;
    return Error{bad_value, "value is none of " + listed};
}

} // namespace zan::sim
