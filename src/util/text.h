// SPDX-License-Identifier: MIT
// Bounded copy and formatting; the public functions are in zan.h.
#pragma once

#include "wire/scan.h"

#include <cstddef>

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

using wire::is_digit;
using wire::is_space;
using wire::skip_space;

// Formats a text that has no arguments: "%%" becomes "%", and any other "%" stays as it
// is, because there is no argument.  So does "%m", which takes none: the current error
// is not what the text's writer meant.  Cut at size-1
// characters; out may be the text itself.
void format_without_arguments(char *out, std::size_t size, const char *format);

} // namespace zan
