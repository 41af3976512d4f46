// SPDX-License-Identifier: MIT
#include "file.h"

#include "interrupt.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace zan::ctl {
namespace {

std::optional<std::string> read_to_end(int file) {
    std::string text;
    char block[65536];
    for (;;) {
        const ssize_t size = read(file, block, sizeof block);
        throw_if_interrupted();
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            return std::nullopt;
        if (size == 0)
            return text;
        text.append(block, static_cast<std::size_t>(size));
    }
}

} // namespace

std::optional<std::string> read_file(const std::string &path) {
    if (path == "-")
        return read_to_end(STDIN_FILENO);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    std::optional<std::string> text = read_to_end(file);
    const int reason = errno;
    close(file);
    errno = reason;
    return text;
}

std::optional<std::string> read_input_line() {
    std::string line;
    for (char c = '\0';;) {
        const ssize_t size = read(STDIN_FILENO, &c, 1);
        throw_if_interrupted();
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0 && line.empty())
            return std::nullopt;
        if (size <= 0 || c == '\n')
            return line;
        line += c;
    }
}

} // namespace zan::ctl
