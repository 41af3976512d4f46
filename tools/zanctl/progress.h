// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace zan::ctl {

// Reports on standard error that the program is waiting.  A terminal also shows for how
// long, updated every second on the same line.
class Progress {
public:
    explicit Progress(const std::string &text);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

private:
    void show_elapsed(const std::string &text);

    std::atomic<bool> ended_ = false;
    std::thread thread_; // only at a terminal
};

// "10 minutes", "0.5 seconds".
std::string duration_text(double seconds);

} // namespace zan::ctl
