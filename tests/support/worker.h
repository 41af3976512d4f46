// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace zan::test {

// A thread that makes one call which may block, observed by the test.
class Worker {
public:
    explicit Worker(std::function<void()> work);
    // Joins the thread. Aborts the test program if the work does not end.
    ~Worker();
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    bool done() const;
    // Waits until the work has ended: whether it did.
    bool wait_until_done() const;
    // Waits until the work has ended or is blocked (support/threads.h): true if it is
    // blocked. A timed sleep does not count.
    bool wait_until_blocked() const;
    // Interrupts the system call that the thread is blocked in, with a signal that has
    // a handler.
    void interrupt();
    // Interrupts it again and again until the work has ended: whether it did. For code
    // that may be between two system calls when a signal arrives.
    bool interrupt_until_done();
    void send(int signal);
    // Detaches a thread that will never end.
    void abandon();

private:
    struct State;
    std::shared_ptr<State> state_;
    std::thread thread_;
};

// Tries to take and release a lock in another thread.
class LockProbe {
public:
    LockProbe(void (*lock)(), void (*unlock)());
    // The lock must be free by then, or the probe abandoned.
    ~LockProbe() = default;

    // Waits until the thread has had the lock or is blocked: whether it had it.
    bool is_free() const;
    // Waits until the thread has had the lock: whether it had it.
    bool wait_until_free() const { return worker_.wait_until_done(); }
    void abandon() { worker_.abandon(); }

private:
    Worker worker_;
};

} // namespace zan::test
