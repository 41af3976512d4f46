// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>

namespace zan::sim {

// Makes this process the daemon of the machine: holds a lock against other zansims, and
// publishes the queues and the port in files that modules read.
class DaemonLock {
public:
    DaemonLock() = default;
    ~DaemonLock() { withdraw(); }
    DaemonLock(const DaemonLock &) = delete;
    DaemonLock &operator=(const DaemonLock &) = delete;

    // Fails if another daemon is alive, or may be; removes what a killed run left.
    // Returns what was removed, empty if nothing.
    Result<std::string> take();

    // Publishes queues and port.  A port of 0 means that agents cannot connect.
    Result<Done> publish(int request_queue, int answer_queue, int port);

    // Removes the files and the lock.
    void withdraw();

private:
    Result<Done> lock();
    Result<Done> publish_port(int port);

    int fd_ = -1;
    int request_queue_ = -1;
    int answer_queue_ = -1;
    int port_ = -1;
};

} // namespace zan::sim
