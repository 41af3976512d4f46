// SPDX-License-Identifier: MIT
// The text that a variadic function's arguments make: a path, above all.
#pragma once

#include "zan.h"

#include <cstdarg>
#include <cstddef>

namespace zan {

// Formatted text, cut to a bound of at most ZAN_PATH_SIZE.
class Formatted {
public:
    Formatted(const char *format, va_list arguments, std::size_t bound = ZAN_PATH_SIZE);

    // Some functions hand their formatted path on as a format, for which there are no
    // arguments: see format_without_arguments.
    static Formatted without_arguments(const char *format) { return Formatted(format); }
    Formatted formatted_again() const { return Formatted(text_); }

    // Drops the character when the text fills its storage.
    void append(char c);

    const char *text() const { return text_; }

private:
    explicit Formatted(const char *format);

    char text_[ZAN_PATH_SIZE];
};

} // namespace zan

// Opens a variadic function that ends in `fmt, ...`: defines `name`, the text they
// make, or returns `refusal` for a null fmt.  A bound may follow.
#define ZAN_FORMAT_OR_RETURN(refusal, name, fmt, ...)                                              \
    if ((fmt) == nullptr)                                                                          \
        return (refusal);                                                                          \
    va_list name##_arguments;                                                                      \
    va_start(name##_arguments, fmt);                                                               \
    zan::Formatted name((fmt), name##_arguments __VA_OPT__(, ) __VA_ARGS__);                       \
    va_end(name##_arguments)
