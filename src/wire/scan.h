// SPDX-License-Identifier: MIT
// Reading words and numbers off a text, as scanf does in the C locale.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace zan::wire {

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// White space as in the C locale, whatever locale the module has set.
constexpr bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr void skip_space(std::string_view &text) {
    while (!text.empty() && is_space(text[0]))
        text.remove_prefix(1);
}

// The next word after white space; empty at the end of the text.
constexpr std::string_view take_word(std::string_view &text) {
    skip_space(text);
    std::size_t length = 0;
    while (length < text.size() && !is_space(text[length]))
        ++length;
    const std::string_view word(text.data(), length);
    text.remove_prefix(length);
    return word;
}

// Takes a number off the text as scanf does for "%d": after white space, and of at
// most `width` characters.  One that does not fit is the nearest that does, on every
// machine.  False, with *value as it was and only the white space taken, if there is
// none.  Never inlined, because the library calls it from several places.
[[gnu::noinline]] constexpr bool take_int(std::string_view &text, int *value,
                                          std::size_t width = std::string_view::npos) {
    constexpr auto lowest = std::int64_t{std::numeric_limits<int>::min()};
    constexpr auto highest = std::int64_t{std::numeric_limits<int>::max()};
    skip_space(text);
    const bool negative = text.starts_with('-');
    const std::size_t first_digit = negative || text.starts_with('+') ? 1 : 0;
    const std::size_t max = std::min(width, text.size());
    std::int64_t sum = 0;
    std::size_t at = first_digit;
    for (; at < max && is_digit(text[at]); ++at)
        sum = std::min(sum * 10 + (text[at] - '0'), -lowest);
    if (at == first_digit)
        return false;
    text.remove_prefix(at);
    *value = static_cast<int>(std::min(negative ? -sum : sum, highest));
    return true;
}

// The bytes before the first NUL.
constexpr std::string_view until_nul(std::string_view bytes) {
    return {bytes.data(), std::min(bytes.find('\0'), bytes.size())};
}

} // namespace zan::wire
