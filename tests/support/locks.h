// SPDX-License-Identifier: MIT
//
// The library's locks as another thread sees them, and the signal that the API lock
// holds back.
#pragma once

#include "support/worker.h"

#include <zan.h>

#include <csignal>

namespace zan::test {

inline bool api_lock_is_free() {
    return LockProbe(zan_api_lock, zan_api_unlock).is_free();
}

inline bool queue_lock_is_free() {
    return LockProbe(zan_msq_lock, zan_msq_unlock).is_free();
}

// Whether the calling thread blocks the signal.
inline bool is_blocked_signal(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
}

inline bool sigterm_is_blocked() {
    return is_blocked_signal(SIGTERM);
}

// Leaves neither lock held or initialised, as in a process that has just started. Call
// it when no other thread uses them.  The thread sanitizer reports a lock that is destroyed
// after a detached thread used it or while an ended thread holds it; under it every case
// is a process of its own, so that nothing is left to reset.
inline void reset_locks() {
#ifndef __SANITIZE_THREAD__
    zan_msq_lock_destroy();
    zan_api_lock_destroy();
#endif
}

// Initialises and holds the API lock and the queue lock: a call that takes either of
// them blocks.
class BothLocks {
public:
    BothLocks() {
        zan_msq_lock_init();
        zan_api_lock_init();
        zan_api_lock();
        zan_msq_lock();
    }
    ~BothLocks() {
        zan_msq_unlock();
        zan_api_unlock();
    }
    BothLocks(const BothLocks &) = delete;
    BothLocks &operator=(const BothLocks &) = delete;
};

} // namespace zan::test
