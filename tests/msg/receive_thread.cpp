// SPDX-License-Identifier: MIT
#include "receive_thread.h"

#include "support/patience.h"

#include <dirent.h>

#include <cstdlib>
#include <thread>

// The address sanitizer takes the end of a cancelled thread for an overflow when it
// restores that thread's signal stack.
extern "C" const char *__asan_default_options(); // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__asan_default_options() {
    return "use_sigaltstack=0";
}

namespace zan::test {
namespace {

std::set<pid_t> threads() {
    std::set<pid_t> found;
    DIR *const directory = opendir("/proc/self/task");
    while (const dirent *const entry = readdir(directory))
        if (const int thread = std::atoi(entry->d_name); thread > 0)
            found.insert(thread);
    closedir(directory);
    return found;
}

// The first thread ever started may bring the sanitizer's own with it.
std::set<pid_t> threads_at_rest() {
    std::thread([] {}).join();
    return threads();
}

} // namespace

NextThread::NextThread() : before_(threads_at_rest()) {}

pid_t NextThread::id() const {
    for (const pid_t candidate : threads())
        if (!before_.contains(candidate))
            return candidate;
    return 0;
}

bool NextThread::wait_until_ended() const {
    return eventually([this] { return id() == 0; });
}

} // namespace zan::test
