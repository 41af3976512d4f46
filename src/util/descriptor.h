// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

namespace zan {

// Owns a descriptor and closes it.  Any value from 0 up is one, and a negative value is
// none; zan_close() would take 0 for none.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(other.release());
        return *this;
    }

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }
    // Gives up the descriptor without closing it.
    int release() { return std::exchange(fd_, -1); }
    // Closes the descriptor, if there is one, and owns another.
    void reset(int fd = -1) {
        if (const int closed = std::exchange(fd_, fd); closed >= 0)
            close(closed);
    }

private:
    int fd_;
};

} // namespace zan
