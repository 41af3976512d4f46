// SPDX-License-Identifier: MIT
#pragma once

#include "state/daemon.h"
#include "transport/queue_transport.h"

#include <chrono>
#include <optional>
#include <string>
#include <thread>

namespace zan::sim {

// Background work: retries records that found a full queue, serves delayed requests
// when they are due, expires management requests, and saves a changed tree at most
// once a second.  Sleeps while there is nothing to do.
class Housekeeping {
public:
    // Saves nothing if the file name is empty.
    Housekeeping(Locked<Daemon> &daemon, QueueTransport &queues, std::string save_file, Log &log);

    // Saves outstanding changes.
    ~Housekeeping();
    Housekeeping(const Housekeeping &) = delete;
    Housekeeping &operator=(const Housekeeping &) = delete;

private:
    using Clock = Daemon::Clock;
    using Guard = Locked<Daemon>::Guard;

    void run();
    bool unsaved(const Daemon &daemon) const;
    std::optional<Clock::time_point> next_task(const Daemon &daemon);
    void send_backlog(Daemon &daemon);
    void save(Guard &guard);

    Locked<Daemon> &daemon_;
    QueueTransport &queues_;
    Log &log_;
    const std::string save_file_;
    bool stopping_ = false; // these under the daemon's lock
    bool save_failed_ = false;
    std::uint64_t saved_version_ = 0;
    Clock::time_point last_save_{};
    Clock::duration retry_pause_;
    std::optional<Clock::time_point> next_retry_;        // of sending, while records wait
    std::optional<Clock::time_point> next_expiry_check_; // of management requests
    std::thread thread_;
};

} // namespace zan::sim
