// SPDX-License-Identifier: MIT
// Text formatted from a variadic function's arguments, usually a path.
#pragma once

#include "zan.h"

#include <cstdarg>
#include <cstddef>

namespace zan {

// Formatted text, cut to a bound of at most ZAN_PATH_SIZE.
class Formatted {
public:
    Formatted(const char *format, va_list arguments, std::size_t bound = ZAN_PATH_SIZE);

    // Some functions use their formatted path as a format again, without arguments: see
    // format_without_arguments.
    static Formatted without_arguments(const char *format) { return Formatted(format); }
    Formatted formatted_again() const { return Formatted(text_); }

    // Drops the character if the text fills its storage.
    void append(char c);

    const char *text() const { return text_; }

private:
    explicit Formatted(const char *format);

    char text_[ZAN_PATH_SIZE];
};

} // namespace zan

// Defines `name`, the text formatted from `fmt, ...`, or returns `refusal` for a null fmt.
// A bound may follow.
#define ZAN_FORMAT_OR_RETURN(refusal, name, fmt, ...)                                              \
    if ((fmt) == nullptr)                                                                          \
        return (refusal);                                                                          \
    va_list name##_arguments;                                                                      \
    va_start(name##_arguments, fmt);                                                               \
    zan::Formatted name((fmt), name##_arguments __VA_OPT__(, ) __VA_ARGS__);                       \
    va_end(name##_arguments)
