// SPDX-License-Identifier: MIT
#include "base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace zan::sim {

namespace {

Error file_error(const std::string &file, const char *step) {
    return {0, file + ": " + step + ": " + std::strerror(errno)};
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// A new file in the same directory, because rename() does not cross file systems.
// Stores its name in the second argument.
Descriptor open_temporary(int directory, std::string &name) {
    const std::string stem = name + '.' + std::to_string(getpid()) + '.';
    for (int number = 0;; ++number) {
        name = stem + std::to_string(number);
        Descriptor fd(openat(directory, name.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd || errno != EEXIST)
            return fd;
    }
}

bool close_checked(Descriptor &fd) {
    return close(fd.release()) == 0;
}

} // namespace

void Descriptor::reset() {
    if (fd_ >= 0)
        close(fd_);
    fd_ = -1;
}

bool read_all(int fd, std::string &text, std::size_t max_size) {
    char block[65536];
    for (;;) {
        const ssize_t size = read(fd, block, sizeof block);
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            return size == 0;
        if (text.size() + static_cast<std::size_t>(size) > max_size) {
            errno = EFBIG;
            return false;
        }
        text.append(block, static_cast<std::size_t>(size));
    }
}

bool replace_in(int directory, const std::string &name, std::string_view text) {
    struct stat old {};
    const mode_t mode =
        fstatat(directory, name.c_str(), &old, 0) == 0 ? old.st_mode & 07777 : mode_t{0644};
    std::string temporary = name;
    Descriptor fd = open_temporary(directory, temporary);
    if (!fd)
        return false;
    bool written = fchmod(fd.get(), mode) == 0 && write_all(fd.get(), text) && fsync(fd.get()) == 0;
    written = close_checked(fd) && written;
    if (written && renameat(directory, temporary.c_str(), directory, name.c_str()) == 0)
        return true;
    const int reason = errno;
    unlinkat(directory, temporary.c_str(), 0);
    errno = reason;
    return false;
}

Result<std::string> load_file(const std::string &file) {
    const Descriptor fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    if (!fd || !read_all(fd.get(), text, SIZE_MAX))
        return file_error(file, "cannot be read");
    return text;
}

Result<Done> write_atomically(const std::string &file, std::string_view text) {
    if (!replace_in(AT_FDCWD, file, text))
        return file_error(file, "cannot be written");
    return Done{};
}

} // namespace zan::sim
