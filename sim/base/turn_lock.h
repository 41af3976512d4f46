// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace zan::sim {

// A lock that is had in the order in which it was asked for.  A thread that takes it
// again and again gets it no more often than one that waits for it.
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

    // To be called by who has it: who waits goes first.
    void give_way() {
        if (last_.load(std::memory_order_relaxed) == current_.load(std::memory_order_relaxed) + 1)
            return;
        unlock();
        lock();
    }

private:
    std::atomic<std::uint32_t> last_ = 0;    // turn of who asks next
    std::atomic<std::uint32_t> current_ = 0; // turn of who has it, or gets it next
};

} // namespace zan::sim
