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

// Executes command lines of modules in the background, if it is allowed to.
class Shell {
public:
    // Called from another thread, unless zansim ends before the command.
    using OnExit = std::function<void(const Result<Done> &)>;

    Shell() = default;
    ~Shell() { end(); }
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

    void allow() { allowed_ = true; }
    bool allowed() const { return allowed_; }

    // Fails if the command cannot be started or too many are running.  An exit status
    // other than 0 is an error.
    Result<Done> start(const std::string &command, OnExit ended);

    // Kills the commands that are still running.
    void end();

private:
    struct Run {
        pid_t pid = -1;
        bool over = false; // under mutex_: whether the process was reaped
        std::atomic<bool> done_ = false;
        std::thread waiting;
    };

    void wait_for(Run &run, const OnExit &ended);
    void sweep();

    bool allowed_ = false;
    std::mutex mutex_;
    bool ending_ = false; // under mutex_
    std::list<Run> runs_; // under the lock of the callers of start()
};

} // namespace zan::sim
