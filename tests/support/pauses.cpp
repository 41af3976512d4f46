// SPDX-License-Identifier: MIT
#include "support/pauses.h"

#include <ctime>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace zan::test {
namespace {

struct Watched {
    bool active = false;
    bool all_threads = false;
    std::thread::id thread = {};
    std::function<void()> action = {};
    std::vector<std::chrono::microseconds> pauses = {};
};

std::mutex mutex;
Watched watched;

// What to do before this pause.
std::function<void()> note(const timespec &pause) {
    const std::lock_guard lock(mutex);
    if (!watched.active || !(watched.all_threads || watched.thread == std::this_thread::get_id()))
        return {};
    watched.pauses.push_back(std::chrono::seconds(pause.tv_sec) +
                             std::chrono::microseconds(pause.tv_nsec / 1000));
    return watched.action;
}

} // namespace

PauseWatch::PauseWatch(Of threads) {
    const std::lock_guard lock(mutex);
    if (watched.active)
        throw std::logic_error("pauses are watched already");
    watched = {.active = true,
               .all_threads = threads == Of::all_threads,
               .thread = std::this_thread::get_id()};
}

PauseWatch::~PauseWatch() {
    const std::lock_guard lock(mutex);
    watched = {};
}

void PauseWatch::before_each(std::function<void()> action) {
    const std::lock_guard lock(mutex);
    watched.action = std::move(action);
}

std::vector<std::chrono::microseconds> PauseWatch::pauses() const {
    const std::lock_guard lock(mutex);
    return watched.pauses;
}

void PauseWatch::forget() {
    const std::lock_guard lock(mutex);
    watched.pauses.clear();
}

} // namespace zan::test

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's
extern "C" {
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left) {
    if (const auto action = zan::test::note(*wanted))
        action();
    return __real_clock_nanosleep(clock, flags, wanted, left);
}
}
// NOLINTEND(bugprone-reserved-identifier)
