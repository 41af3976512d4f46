// SPDX-License-Identifier: MIT
// Bounded copy and formatting; the public functions are in zan.h.
#pragma once

#include <cstddef>
#include <string_view>

namespace zan {

// Callers that do not know the size of a destination pass 0: a size below 5 means this
// bound.
inline constexpr int default_bound = 1024;

constexpr std::size_t bound_of(int size) {
    return static_cast<std::size_t>(size < 5 ? default_bound : size);
}

// Blank to the trim functions: taken as signed, so every byte of a multi-byte
// character is blank too.
constexpr bool is_blank(char c) {
    return static_cast<signed char>(c) < 33;
}

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// White space as in the C locale, whatever locale the module has set.
constexpr bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline void skip_space(std::string_view &text) {
    while (!text.empty() && is_space(text[0]))
        text.remove_prefix(1);
}

// Formats a text that has no arguments: "%%" becomes "%", and any other "%" stays as it
// is, because there is no argument.  So does "%m", which takes none: the current error
// is not what the text's writer meant.  Cut at size-1
// characters; out may be the text itself.
void format_without_arguments(char *out, std::size_t size, const char *format);

} // namespace zan
