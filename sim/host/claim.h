// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>

namespace zan::sim {

// The place of the daemon on this machine: the files that tell modules its
// queues and its port, and a lock by which a zansim knows another one.
class Claim {
public:
    Claim() = default;
    ~Claim() { withdraw(); }
    Claim(const Claim &) = delete;
    Claim &operator=(const Claim &) = delete;

    // Refuses beside a live daemon, or one that cannot be told from a live one;
    // removes what a killed run left.  The text says what was removed; it is
    // empty when there was nothing.
    Result<std::string> take();

    // Tells modules where to send.
    // Without a port, 0, there is no link for agents.
    Result<Done> publish(int request_queue, int answer_queue, int port);

    // Modules that start from now on find no daemon.
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
