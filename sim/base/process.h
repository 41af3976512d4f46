// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <csignal>

namespace zan::sim {

inline bool is_alive(pid_t pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

} // namespace zan::sim
