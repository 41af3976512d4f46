// SPDX-License-Identifier: MIT
//
// The library pauses with clock_nanosleep(). A program that links zan_test_pauses sees
// these calls, and they go through unchanged.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace zan::test {

// Notes the pauses made while it exists, by its own thread or by all threads. One at a
// time.
class PauseWatch {
public:
    enum class Of { this_thread, all_threads };

    explicit PauseWatch(Of threads = Of::this_thread);
    ~PauseWatch();
    PauseWatch(const PauseWatch &) = delete;
    PauseWatch &operator=(const PauseWatch &) = delete;

    // Called at the beginning of each pause, by the thread that makes it.
    void before_each(std::function<void()> action);

    std::vector<std::chrono::microseconds> pauses() const;
    void forget();
};

} // namespace zan::test
