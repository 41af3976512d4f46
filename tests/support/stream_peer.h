// SPDX-License-Identifier: MIT
#pragma once

#include "support/raw.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace zan::test {

// How the seven words type, cmd, pid, result, aux, arg and len of a record travel;
// time and spare always travel in the sender's own order.
enum class ByteOrder { network, host };

// A record as the bytes of a stream: no queue type.
std::string stream_bytes(const Fields &fields, ByteOrder order);

// Compares every byte; the failure names the first field that differs.
testing::AssertionResult same_bytes(std::string_view actual, std::string_view expected);

// How many bytes wait to be read from a socket.
std::size_t bytes_waiting(int fd);

// The daemon's end of the link on a thread of the test: listens on 127.0.0.1 at a
// port of its own, says so in the port and address files, keeps every byte that
// comes, and sends what the test says.
class StreamPeer {
public:
    // Not yet listening: connections to the port are refused until listen().
    enum class Start { listening, deaf };

    explicit StreamPeer(Start start = Start::listening);
    // Removes the files.
    ~StreamPeer();
    StreamPeer(const StreamPeer &) = delete;
    StreamPeer &operator=(const StreamPeer &) = delete;

    int port() const { return port_; }
    void listen() const;

    // Answers the next record that is not spoken for yet with these bytes, or, to
    // hang up, by closing the connection.  A record without a reply gets none.
    void reply(std::string bytes);
    void hang_up_at_next_record();

    // These act on the connection made last, and wait for one.
    void send(std::string_view bytes);
    // Sends, and waits until the module's socket has got it all.
    void deliver(int module_fd, std::string_view bytes);
    void hang_up();
    // Hangs up as a daemon that crashed does: what is under way is lost, and the
    // module's next send fails.
    void reset();

    // Connections made, and those of them that the module has closed: what has been
    // made by now counts, and what has been sent by now is in the records below.
    int connections() const;
    bool wait_for_connections(int count) const;
    bool wait_for_closed(int count) const;

    // The records that arrived, in whichever order their words were, oldest first.
    std::vector<std::string> records() const;
    std::vector<std::string> wait_for_records(std::size_t count) const;
    // What arrived behind the last whole record.
    std::string unfinished() const;
    void forget_records();

private:
    struct Reply {
        std::string bytes;
        bool hang_up;
    };

    void run();
    void accept_connection();
    void read_connection();
    void split_records();
    int connection() const;
    std::unique_lock<std::mutex> lock_at_rest() const;
    template<typename Condition> bool wait(Condition condition) const;

    int listener_;
    int wake_[2];
    int port_ = 0;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<int> connections_; // the last is the current one
    bool current_open_ = false;
    int closed_ = 0;
    int idle_turns_ = 0;
    std::string received_;
    std::vector<std::string> records_;
    std::deque<Reply> replies_;
    std::thread thread_;
};

} // namespace zan::test
