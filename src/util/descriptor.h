// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

namespace zan {

// Owns a descriptor, any that is not negative: zan_close() would take 0 for "none".
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }

private:
    int fd_;
};

} // namespace zan
