// SPDX-License-Identifier: MIT
#pragma once

#include "support/raw.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zan::test {

// One record that the scripted daemon sends when a request has arrived.  What is
// not set is as a well-behaved daemon has it: result 1, class and command of the
// request; on the queue named by the request's queue type under the class as queue
// type, except for registration (class 3), which is answered on the daemon's
// registration queue under the queue id of the module.
struct Reply {
    std::int32_t result = 1;
    std::string payload = {};
    std::optional<std::int32_t> type = {};
    std::optional<std::int32_t> cmd = {};
    std::string dst = {};
    std::string src = {};
    std::int32_t aux = 0;
    std::int32_t arg = 0;
    std::optional<std::int32_t> len = {};  // what the header claims
    std::optional<std::size_t> msgsz = {}; // what travels
    std::optional<long> mtype = {};
    std::optional<int> queue = {};
    std::chrono::milliseconds delay{0}; // wait before it
    bool held = false;                  // wait for release() before it
    bool die = false;                   // remove the queues instead of answering
};

// The records sent for one request, in order; none leaves it without an answer.
using Replies = std::vector<Reply>;

inline Replies never() {
    return {};
}
inline Replies die() {
    return {{.die = true}};
}
inline Replies answer(std::string payload) {
    return {{.payload = std::move(payload)}};
}
inline Replies negative(std::int32_t result, std::string text = {}) {
    return {{.result = result, .payload = std::move(text)}};
}

// The daemon's side of the queues on a thread of the test: creates the two queues
// and their id files, keeps every record that arrives as it came, and answers what
// the test says.  With nothing said, every request is granted.
class ScriptedDaemon {
public:
    ScriptedDaemon();
    // Removes queues and id files.
    ~ScriptedDaemon();
    ScriptedDaemon(const ScriptedDaemon &) = delete;
    ScriptedDaemon &operator=(const ScriptedDaemon &) = delete;

    int request_queue() const { return request_queue_; }
    int registration_queue() const { return registration_queue_; }

    // Answers every request of this class and command so...
    void on(std::int32_t type, std::int32_t cmd, Replies replies);
    // ...but the next one that is not spoken for yet so.
    void once(std::int32_t type, std::int32_t cmd, Replies replies);

    // Lets the next held reply go.
    void release();

    // Removes both queues, as a daemon that crashed and was cleaned up after; the id
    // files stay.
    void die();

    // Everything that has been sent to it by now, oldest first. A record that follows a
    // held reply, or does not fit into the queue, has not arrived.
    std::vector<SizedRecord> records() const;
    // The same once at least `count` records have arrived; fails the test when they
    // do not.
    std::vector<SizedRecord> wait_for_records(std::size_t count) const;
    // Forgets what arrived.
    void forget_records();
    // The payloads of what has arrived since that was last forgotten, which this does.
    std::vector<std::string> take_payloads();

private:
    using Key = std::pair<std::int32_t, std::int32_t>;

    void wait_until_all_read() const;

    void run();
    Replies replies_for(const Key &key);
    void send(const SizedRecord &request, const Reply &reply);
    bool wait_before(const Reply &reply);

    int request_queue_;
    int registration_queue_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<Key, Replies> rules_;
    std::map<Key, std::deque<Replies>> once_;
    std::deque<SizedRecord> records_;
    int released_ = 0;
    bool holding_ = false; // waits for release()
    mutable int barriers_sent_ = 0;
    int barriers_seen_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace zan::test
