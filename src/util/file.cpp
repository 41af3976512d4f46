// SPDX-License-Identifier: MIT
#include "zan.h"

#include <cstdio>
#include <unistd.h>

int zan_file_exists(const char *path) {
    FILE *file = path != nullptr ? std::fopen(path, "r") : nullptr;
    if (file == nullptr)
        return 0;
    std::fclose(file);
    return 1;
}

FILE *zan_fopen(const char *path, const char *mode) {
    FILE *file = path != nullptr && mode != nullptr ? std::fopen(path, mode) : nullptr;
    if (file == nullptr)
        std::printf("### Warning:zan_fopen NULL\n");
    return file;
}

int zan_fclose(FILE *stream) {
    if (stream == nullptr)
        return std::printf("### Warning:zan_fclose NULL\n");
    return std::fclose(stream);
}

int zan_close(int fd) {
    if (fd <= 0)
        return std::printf("### Warning:zan_close[%d]\n", fd);
    return close(fd);
}
