// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <cstring>

namespace zan {

// Preserves errno while a failure is handled.
class ErrnoGuard {
public:
    ErrnoGuard() = default;
    ~ErrnoGuard() { errno = saved_; }
    ErrnoGuard(const ErrnoGuard &) = delete;
    ErrnoGuard &operator=(const ErrnoGuard &) = delete;

    const char *text() const { return std::strerror(saved_); }

private:
    int saved_ = errno;
};

} // namespace zan
