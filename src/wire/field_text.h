// SPDX-License-Identifier: MIT
// A text as one field of a line whose fields are separated by spaces: spaces, control
// characters and "%" as %XX, the empty text as "%00".
#pragma once

#include "wire/sink.h"
#include "wire/utf8.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zan::wire {

inline constexpr std::string_view empty_field = "%00";
inline constexpr char hex_digits[] = "0123456789ABCDEF";

constexpr bool is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

// -1 for a character that is no hexadecimal digit.
constexpr int hex_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

template<Sink Out> constexpr void append_hex(Out &out, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    const char digits[] = {hex_digits[value >> 4U], hex_digits[value & 15U]};
    out.append(digits, sizeof digits);
}

// Cuts a field longer than `max` bytes between characters, never inside a %XX or a
// UTF-8 sequence.  The empty text is never cut.
template<Sink Out>
constexpr void format_field(Out &out, std::string_view text, std::size_t max = SIZE_MAX) {
    if (text.empty())
        return append(out, empty_field);
    for (std::size_t used = 0; !text.empty();) {
        const bool coded = is_control(text[0]) || text[0] == ' ' || text[0] == '%';
        const std::size_t sequence = utf8_length(text);
        const std::size_t length = sequence != 0 ? sequence : 1;
        used += coded ? 3 : length;
        if (used > max)
            return;
        if (coded) {
            append(out, '%');
            append_hex(out, text[0]);
        } else {
            out.append(text.data(), length);
        }
        text.remove_prefix(length);
    }
}

// Appends the text of a field.  False, with part of it appended, if the field is not
// written that way.
template<Sink Out> constexpr bool parse_field(Out &out, std::string_view field) {
    if (field == empty_field)
        return true;
    while (!field.empty()) {
        std::size_t length = 1;
        if (field[0] != '%') {
            append(out, field[0]);
        } else {
            const int high = field.size() < 3 ? -1 : hex_value(field[1]);
            const int low = field.size() < 3 ? -1 : hex_value(field[2]);
            if (high < 0 || low < 0)
                return false;
            append(out, static_cast<char>(high * 16 + low));
            length = 3;
        }
        field.remove_prefix(length);
    }
    return true;
}

// Without the escape that a cut has left incomplete at the end.
constexpr std::string_view without_cut_escape(std::string_view field) {
    const std::size_t percent = field.rfind('%');
    const bool incomplete = percent != field.npos && field.size() - percent < 3;
    return {field.data(), incomplete ? percent : field.size()};
}

} // namespace zan::wire
