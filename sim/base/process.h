// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <string>

namespace zan::sim {

inline bool is_alive(pid_t pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

// The process of a thread: the kernel notes a thread as the last receiver of a queue
// if the thread was waiting.  The number itself if there is no such thread any more.
inline pid_t process_of_thread(pid_t thread) {
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string word; status >> word;) {
        pid_t process = 0;
        if (word == "Tgid:" && status >> process)
            return process;
    }
    return thread;
}

} // namespace zan::sim
