// SPDX-License-Identifier: MIT
#pragma once

#include "state/daemon.h"
#include "transport/queue_link.h"

#include <chrono>
#include <optional>
#include <string>
#include <thread>

namespace zan::sim {

// What happens without a request: records that found a full queue are sent once
// there is room, requests that a fault delays are served when their time comes, who
// waits for a management answer in vain is told, and a changed tree is saved, at most once a
// second.  Sleeps while there is nothing.
class Housekeeping {
public:
    // An empty file name saves nothing.
    Housekeeping(Daemon &daemon, QueueLink &link, std::string save_file, Trace &trace);

    // Saves what is not saved yet.
    ~Housekeeping();
    Housekeeping(const Housekeeping &) = delete;
    Housekeeping &operator=(const Housekeeping &) = delete;

private:
    using Clock = Daemon::Clock;

    void run();
    bool unsaved() const;
    std::optional<Clock::time_point> next_task();
    void send_backlog();
    void save(Daemon::Guard &guard);

    Daemon &daemon_;
    QueueLink &link_;
    Trace &trace_;
    const std::string save_file_;
    bool stopping_ = false; // these under the daemon's lock
    bool save_failed_ = false;
    std::uint64_t saved_version_ = 0;
    Clock::time_point last_save_{};
    Clock::duration retry_pause_;
    std::optional<Clock::time_point> next_retry_; // of sending, while something waits
    std::optional<Clock::time_point> next_look_;  // at who waits for a management answer
    std::thread thread_;
};

} // namespace zan::sim
