// SPDX-License-Identifier: MIT
#pragma once

#include "transport/drop_reporter.h"
#include "transport/stream.h"

#include <cstddef>
#include <deque>
#include <string>

namespace zan::sim {

// The stream to one module.  Never blocks.
class Connection {
public:
    // Owns the descriptor of a connected socket.
    explicit Connection(int fd);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    int fd() const { return fd_; }

    // Reads what has arrived.  False at the end of the stream or on an error.
    bool receive();

    // Sends the bytes of a record, or keeps those without room.  False if the peer has
    // gone.
    bool send(std::string record);
    bool flush();

    // Bytes that are kept.
    std::size_t waiting() const { return waiting_; }

    // Sends only what is kept, and discards what arrives.
    void finish();
    bool finishing() const { return finishing_; }

    StreamReader reader;
    DropReporter drops;
    bool stalled = false; // requests wait until there is room for answers
    bool gone = false;    // the polling thread closes it

private:
    bool writable() const;

    const int fd_;
    std::deque<std::string> records_;
    std::size_t sent_ = 0; // bytes of the first
    std::size_t waiting_ = 0;
    bool finishing_ = false;
};

} // namespace zan::sim
