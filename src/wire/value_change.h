// SPDX-License-Identifier: MIT
// The payload of a value-changed notification: six fields, separated by spaces,
//   SOURCE PATH VALUE KIND OPTION SUBSCRIBED
// Source and value are texts as field_text.h has them.
#pragma once

#include "wire/scan.h"
#include "wire/sink.h"
#include "zan.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zan::wire {

enum class ChangeKind : std::int32_t { changed = 1, added = 2, deleted = 3 };

// Bytes that a receiver keeps of each text; the rest of a longer one is lost.
inline constexpr std::size_t max_changed_source = ZAN_NAME_SIZE - 1;
inline constexpr std::size_t max_changed_path = ZAN_PATH_SIZE - 1;
inline constexpr std::size_t max_changed_value = ZAN_LONGEST_CHANGED_VALUE;
inline constexpr std::size_t max_changed_subscription = 511;

// The fields as they travel.
struct ValueChange {
    std::string_view source; // the module that made the change
    std::string_view path;
    std::string_view value; // the new one
    int kind = static_cast<int>(ChangeKind::changed);
    int option = 0;              // of the subscription
    std::string_view subscribed; // the path of the subscription
};

// Reads as "%s %s %s %d %d %s" does.  Missing fields keep their defaults; so does a
// number that is none, and everything after it.
constexpr ValueChange parse_value_change(std::string_view text) {
    ValueChange change;
    change.source = take_word(text);
    change.path = take_word(text);
    change.value = take_word(text);
    if (take_int(text, &change.kind) && take_int(text, &change.option))
        change.subscribed = take_word(text);
    return change;
}

template<Sink Out> constexpr void append_number(Out &out, int number) {
    char digits[12] = {};
    std::size_t at = sizeof digits;
    auto rest = static_cast<std::int64_t>(number);
    const bool negative = rest < 0;
    if (negative)
        rest = -rest;
    do {
        digits[--at] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (negative)
        digits[--at] = '-';
    out.append(digits + at, sizeof digits - at);
}

template<Sink Out> constexpr void format_value_change(Out &out, const ValueChange &change) {
    for (const std::string_view text : {change.source, change.path, change.value}) {
        append(out, text);
        append(out, ' ');
    }
    append_number(out, change.kind);
    append(out, ' ');
    append_number(out, change.option);
    append(out, ' ');
    append(out, change.subscribed);
}

} // namespace zan::wire
