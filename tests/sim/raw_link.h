// SPDX-License-Identifier: MIT
#pragma once

#include "sim/zansim.h"
#include "support/stream_peer.h"

#include <string>
#include <string_view>

namespace zan::test {

// An agent's end of its TCP link to zansim, by plain system calls.
class RawLink {
public:
    // Connects to where the files say; a small receive buffer is soon full.
    enum class Buffer { usual, small };
    explicit RawLink(std::string name, Buffer buffer = Buffer::usual);
    ~RawLink();
    RawLink(const RawLink &) = delete;
    RawLink &operator=(const RawLink &) = delete;

    const std::string &name() const { return name_; }

    // Waits while there is no room; false when zansim has closed the link.
    bool send(std::string_view bytes) const;
    void send(const Fields &fields, ByteOrder order) const;
    // Sends as much of the bytes as finds room, without waiting; returns how much.
    std::size_t send_some(std::string_view bytes) const;

    // The next record, waited for: its bytes as they came; empty after the end of
    // the link, and a failed test when nothing comes.
    std::string receive() const;
    // What has come, without waiting.
    std::size_t waiting() const { return bytes_waiting(fd_); }
    // Waits for the end of the link: whether it came, with nothing before it.
    bool ended() const;
    void hang_up();

    // A request of this agent, well-formed.
    Fields request(int type, int cmd, std::string payload) const;
    // Sends a request in the order in which the library does, and waits for a record.
    std::string call(int type, int cmd, std::string payload) const;
    std::string announce(int cmd) const;

    // The answer that zansim owes to a request.
    std::string answer(const Zansim &zansim, int type, int cmd, int result,
                       std::string payload = {}) const;

private:
    std::string read(std::size_t size) const;

    std::string name_;
    int fd_;
};

} // namespace zan::test
