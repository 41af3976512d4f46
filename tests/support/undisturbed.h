// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <thread>

namespace zan::test {

// Starts a thread that takes no signal: those that a test sends are meant for its
// own threads.
template<typename Work> std::thread start_undisturbed(Work work) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(work);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace zan::test
