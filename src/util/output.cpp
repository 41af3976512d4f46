// SPDX-License-Identifier: MIT
#include "zan.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

void zan_dprintf(const char *fmt, ...) {
    FILE *console = fmt != nullptr ? std::fopen("/dev/console", "we") : nullptr;
    if (console == nullptr)
        return;
    va_list arguments;
    va_start(arguments, fmt);
    std::vfprintf(console, fmt, arguments);
    va_end(arguments);
    std::fclose(console);
}

int redirect_output(const void *buf, int n, FILE *stream) {
    if (stream == nullptr || n < 1)
        return n;
    if (buf == nullptr)
        return 0;
    return static_cast<int>(std::fwrite(buf, 1, static_cast<std::size_t>(n), stream));
}
