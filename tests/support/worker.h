// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <thread>

namespace zan::test {

// Waits until the thread sleeps in the kernel for good: whether it does.
bool wait_until_asleep(pid_t thread);

// A thread that runs one call which may block, watched from outside.
class Worker {
public:
    explicit Worker(std::function<void()> work);
    // Joins; ends the test program when the work does not come to an end.
    ~Worker();
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    bool done() const;
    // Waits until the work has ended: whether it did.
    bool wait_until_done() const;
    // Waits until the work has ended or sleeps in the kernel for good: true when
    // it sleeps.
    bool wait_until_blocked() const;
    // Interrupts the system call in which the thread waits, as a signal with a
    // handler does.
    void interrupt();
    void send(int signal);
    // Leaves a thread behind that will never end.
    void abandon();

private:
    struct State;
    std::shared_ptr<State> state_;
    std::thread thread_;
};

// Whether another thread can take the lock: takes and releases it, or is found
// waiting for it.
class LockProbe {
public:
    LockProbe(void (*lock)(), void (*unlock)());
    // Call it where the lock is free again, or abandon() the probe.
    ~LockProbe() = default;

    bool is_free() const;
    // Waits until the lock became free and was taken: whether it was.
    bool wait_until_free() const { return worker_.wait_until_done(); }
    void abandon() { worker_.abandon(); }

private:
    Worker worker_;
};

} // namespace zan::test
