// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <set>

namespace zan::test {

// Sees the thread that is started after it come and go, when no other is.
class NextThread {
public:
    NextThread();

    // The lowest of them, 0 when there is none.
    pid_t id() const;
    bool wait_until_ended() const;

private:
    const std::set<pid_t> before_;
};

} // namespace zan::test
