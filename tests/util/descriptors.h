// SPDX-License-Identifier: MIT
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <set>
#include <string>

namespace zan::test {

// The descriptors this process holds.
inline std::set<int> open_descriptors() {
    std::set<int> found;
    DIR *directory = opendir("/proc/self/fd");
    while (const dirent *entry = readdir(directory)) {
        if (entry->d_name[0] != '.')
            found.insert(std::stoi(entry->d_name));
    }
    found.erase(dirfd(directory));
    closedir(directory);
    return found;
}

// Puts another descriptor in the place of fd, or none, and fd back in the end.
class DescriptorReplaced {
public:
    static constexpr int nothing = -1;

    DescriptorReplaced(int fd, int replacement) : fd_(fd), saved_(fcntl(fd, F_DUPFD_CLOEXEC, 64)) {
        if (replacement == nothing)
            close(fd_);
        else
            dup2(replacement, fd_);
    }
    ~DescriptorReplaced() {
        dup2(saved_, fd_);
        close(saved_);
    }
    DescriptorReplaced(const DescriptorReplaced &) = delete;
    DescriptorReplaced &operator=(const DescriptorReplaced &) = delete;

private:
    int fd_;
    int saved_;
};

} // namespace zan::test
