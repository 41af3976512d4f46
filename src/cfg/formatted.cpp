// SPDX-License-Identifier: MIT
#include "cfg/formatted.h"

#include "util/text.h"

#include <cstdio>
#include <cstring>

namespace zan {
namespace {

void copy_bounded(char *text, const char *source, std::size_t bound) {
    const std::size_t length = strnlen(source, bound - 1);
    std::memcpy(text, source, length);
    text[length] = '\0';
}

// What the formatter prints for an argument of "%s".
const char *shown(const char *argument) {
    return argument != nullptr ? argument : "(null)";
}

} // namespace

// The two forms that most calls have, a plain text and "%s", need no formatter.
Formatted::Formatted(const char *format, va_list arguments, std::size_t bound) {
    if (std::strchr(format, '%') == nullptr)
        copy_bounded(text_, format, bound);
    else if (std::strcmp(format, "%s") == 0)
        copy_bounded(text_, shown(va_arg(arguments, const char *)), bound);
    else if (std::vsnprintf(text_, bound, format, arguments) < 0)
        text_[0] = '\0';
}

Formatted::Formatted(const char *format) {
    format_without_arguments(text_, sizeof text_, format);
}

void Formatted::append(char c) {
    const std::size_t length = std::strlen(text_);
    if (length + 1 < sizeof text_) {
        text_[length] = c;
        text_[length + 1] = '\0';
    }
}

} // namespace zan
