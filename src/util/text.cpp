// SPDX-License-Identifier: MIT
#include "util/text.h"

#include "zan.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace zan {

void format_without_arguments(char *out, std::size_t size, const char *format) {
    const char *const end = out + size - 1;
    for (const char *in = format; *in != '\0' && out < end; ++in) {
        if (in[0] == '%' && in[1] == '%')
            ++in;
        *out++ = *in;
    }
    *out = '\0';
}

} // namespace zan

using namespace zan;

char *zan_triml(char *text) {
    if (text == nullptr)
        return nullptr;
    char *first = text;
    while (*first != '\0' && is_blank(*first))
        ++first;
    if (*first == '\0') {
        *text = '\0';
        return text;
    }
    return first;
}

char *zan_trimr(char *text) {
    if (text == nullptr)
        return nullptr;
    std::size_t length = std::strlen(text);
    while (length > 0 && is_blank(text[length - 1]))
        --length;
    text[length] = '\0';
    return text;
}

char *zan_trim(char *text) {
    return zan_trimr(zan_triml(text));
}

int zan_strcpy(char *dst, const char *src, int size) {
    if (dst == nullptr || src == nullptr)
        return 0;
    const std::size_t bound = bound_of(size);
    const std::size_t length = strnlen(src, bound);
    const bool cut = length == bound;
    const std::size_t copied = cut ? bound - 1 : length;
    std::memmove(dst, src, copied);
    dst[copied] = '\0';
    if (cut)
        std::printf("### warning: zan_strcpy overflow, pid = %d, string = %s, size = %d\n",
                    static_cast<int>(getpid()), dst, static_cast<int>(copied));
    return static_cast<int>(copied);
}

int zan_sprintf(char *dst, int size, const char *fmt, ...) {
    if (size < 0 || dst == nullptr || fmt == nullptr)
        return 0;
    const std::size_t bound = bound_of(size);
    va_list arguments;
    va_start(arguments, fmt);
    const int length = std::vsnprintf(dst, bound, fmt, arguments);
    va_end(arguments);
    if (length <= 0)
        return length;
    const std::size_t stored =
        static_cast<std::size_t>(length) < bound ? static_cast<std::size_t>(length) : bound - 1;
    dst[stored] = '\0';
    return static_cast<int>(stored);
}
