// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace zan::sim {

// Executes command lines that modules ask for, beside everything else, when the
// person who started zansim wants it.
class Shell {
public:
    // Told from a thread of its own, unless zansim ends before the command.
    using Ended = std::function<void(const Result<Done> &)>;

    Shell() = default;
    ~Shell() { end(); }
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

    void allow() { allowed_ = true; }
    bool allowed() const { return allowed_; }

    // Refused when it cannot be started, or too many run.  An exit status other
    // than 0 is an error.
    Result<Done> start(const std::string &command, Ended ended);

    // Ends the commands that still run.
    void end();

private:
    struct Run {
        pid_t pid = -1;
        bool over = false; // under mutex_: whether the process has been collected
        std::atomic<bool> told = false;
        std::thread waiting;
    };

    void wait_for(Run &run, const Ended &ended);
    void sweep();

    bool allowed_ = false;
    std::mutex mutex_;
    bool ending_ = false; // under mutex_
    std::list<Run> runs_; // of the threads that call start(), one at a time
};

} // namespace zan::sim
