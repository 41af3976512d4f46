// SPDX-License-Identifier: MIT
#pragma once

#include "result.h"

#include <string>

namespace zan::sim {

// The place of the daemon on this machine: the two files that tell modules its
// queues, and a lock by which a zansim knows another one.
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
    Result<Done> publish(int request_queue, int answer_queue);

    // Modules that start from now on find no daemon.
    void withdraw();

private:
    Result<Done> lock();

    int fd_ = -1;
    int request_queue_ = -1;
    int answer_queue_ = -1;
};

} // namespace zan::sim
