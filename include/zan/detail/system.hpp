// SPDX-License-Identifier: MIT
// Deadlines, helper threads and forks.
#ifndef ZAN_DETAIL_SYSTEM_HPP
#define ZAN_DETAIL_SYSTEM_HPP

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <pthread.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zan {

// The time that one call may take, any std::chrono duration; none means the default of
// the module or agent.
using Timeout = std::optional<std::chrono::milliseconds>;

namespace detail {

using Clock = std::chrono::steady_clock;

class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds timeout) : at_(Clock::now() + timeout) {}

    Clock::time_point at() const { return at_; }
    bool passed() const { return Clock::now() >= at_; }
    // For poll(): rounded up, so that a wait does not end early.
    int poll_ms() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(at_ - Clock::now()).count();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000 * 1000 * 1000));
    }

private:
    Clock::time_point at_;
};

// Sleeps between two attempts at something that the kernel cannot wait for with a limit:
// briefly at first, then longer, and not beyond the deadline.
class BackOff {
public:
    explicit BackOff(const Deadline &deadline) : deadline_(deadline) {}

    // False, without a pause, once the deadline has passed.
    bool pause() {
        const auto now = Clock::now();
        if (now >= deadline_.at())
            return false;
        std::this_thread::sleep_until(std::min(now + pause_, deadline_.at()));
        pause_ = std::min(pause_ * 2, max_pause);
        return true;
    }

private:
    static constexpr std::chrono::microseconds max_pause{5000};

    const Deadline &deadline_;
    std::chrono::microseconds pause_{50};
};

// A joinable thread in which every signal is blocked: handlers of the program run on its own
// threads only, and interrupt no helper.
class HelperThread {
public:
    HelperThread() = default;
    HelperThread(const HelperThread &) = delete;
    HelperThread &operator=(const HelperThread &) = delete;

    bool running() const { return running_; }

    // False when the system has no thread to give.  Does nothing when one is running.
    bool start(std::function<void()> work) {
        if (running_)
            return true;
        auto owned = std::make_unique<std::function<void()>>(std::move(work));
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        running_ = pthread_create(&thread_, nullptr, run, owned.get()) == 0;
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        if (running_)
            static_cast<void>(owned.release());
        return running_;
    }

    void join() {
        if (running_)
            pthread_join(thread_, nullptr);
        running_ = false;
    }

private:
    static void *run(void *work) {
        const std::unique_ptr<std::function<void()>> owned(
            static_cast<std::function<void()> *>(work));
        (*owned)();
        return nullptr;
    }

    pthread_t thread_{};
    bool running_ = false;
};

// Readable for poll() while something is pending.
class PendingFlag {
public:
    PendingFlag() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~PendingFlag() {
        if (fd_ >= 0)
            close(fd_);
    }
    PendingFlag(const PendingFlag &) = delete;
    PendingFlag &operator=(const PendingFlag &) = delete;

    int fd() const { return fd_; }
    void raise() { static_cast<void>(eventfd_write(fd_, 1)); }
    void clear() {
        eventfd_t count = 0;
        static_cast<void>(eventfd_read(fd_, &count));
    }

private:
    int fd_;
};

// How often this process has come out of fork() as the child: helper threads and
// registration stay with the parent.
inline int fork_generation() {
    static std::atomic<int> generation{0};
    static const int watched = pthread_atfork(
        nullptr, nullptr, [] { generation.fetch_add(1, std::memory_order_relaxed); });
    static_cast<void>(watched);
    return generation.load(std::memory_order_relaxed);
}

} // namespace detail
} // namespace zan

#endif
