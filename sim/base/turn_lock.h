// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace zan::sim {

// A fair lock: threads get it in the order in which they asked.  A thread that
// takes it again and again cannot starve the others.
class TurnLock {
public:
    void lock() {
        const std::uint32_t turn = last_.fetch_add(1, std::memory_order_relaxed);
        for (;;) {
            const std::uint32_t current = current_.load(std::memory_order_acquire);
            if (current == turn)
                return;
            current_.wait(current, std::memory_order_acquire);
        }
    }

    void unlock() {
        current_.fetch_add(1, std::memory_order_release);
        current_.notify_all();
    }

    // Called by the holder: lets waiting threads go first, and takes the lock again.
    void yield_to_waiters() {
        if (last_.load(std::memory_order_relaxed) == current_.load(std::memory_order_relaxed) + 1)
            return;
        unlock();
        lock();
    }

private:
    std::atomic<std::uint32_t> last_ = 0;    // the next thread that asks gets this turn
    std::atomic<std::uint32_t> current_ = 0; // the turn that holds the lock
};

} // namespace zan::sim
