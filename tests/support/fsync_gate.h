// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace zan::test {

// A disk as slow as a test wants it: the kernel hands over each fsync() of the programs
// that this process starts from now on, and it goes on when the gate is open.  What
// starts while there is a gate must not outlive it.
class FsyncGate {
public:
    FsyncGate();
    ~FsyncGate();
    FsyncGate(const FsyncGate &) = delete;
    FsyncGate &operator=(const FsyncGate &) = delete;

    // Empty when there is such a gate, else the reason why not.
    const std::string &why_none() const { return why_none_; }

    void close();
    void open();

    // Waits until somebody stands before the closed gate: whether that came about.
    bool await_caller() const;

private:
    void serve();

    std::string why_none_;
    int listener_ = -1;
    int end_ = -1;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = true;
    bool caller_ = false;
    std::thread thread_;
};

} // namespace zan::test
