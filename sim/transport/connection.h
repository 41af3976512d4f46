// SPDX-License-Identifier: MIT
#pragma once

#include "transport/losses.h"
#include "transport/stream.h"

#include <cstddef>
#include <deque>
#include <string>

namespace zan::sim {

// The stream to one module.  Nothing here waits.
class Connection {
public:
    // Owns the descriptor of a connected socket.
    explicit Connection(int fd);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    int fd() const { return fd_; }

    // Takes what has come; false when nothing can come any more.
    bool receive();

    // Sends the bytes of a record, or keeps what finds no room; false when the peer
    // has gone.
    bool send(std::string record);
    bool flush();

    // Bytes that wait for room.
    std::size_t waiting() const { return waiting_; }

    // Nothing is sent any more but what waits, and what comes is thrown away.
    void finish();
    bool finishing() const { return finishing_; }

    StreamReader reader;
    Losses losses;
    bool stalled = false; // requests wait until the answers find room
    bool gone = false;    // to be closed by the thread that polls it

private:
    bool writable() const;

    const int fd_;
    std::deque<std::string> records_;
    std::size_t sent_ = 0; // bytes of the first
    std::size_t waiting_ = 0;
    bool finishing_ = false;
};

} // namespace zan::sim
