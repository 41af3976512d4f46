// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace zan::sim {

// System V queues as zansim uses them: nothing here waits but receive().

struct QueueState {
    std::size_t records = 0;  // that wait in it
    std::size_t used = 0;     // bytes of them
    std::size_t capacity = 0; // bytes it takes
    pid_t last_sender = 0;
    pid_t last_receiver = 0;
};

// A new queue that every user may use; -1 with errno on failure.
int create_queue();
bool remove_queue(int id);

// Nothing, with errno, when the queue does not exist or may not be looked at.
std::optional<QueueState> queue_state(int id);
bool queue_exists(int id);

enum class Sent { yes, full, too_long, gone, refused };
Sent send_now(int id, long mtype, std::string_view body);

// A record with the type it travels under.
struct Packet {
    long mtype = 0;
    std::string body;
};

// The next record: of at most ZAN_BODY_SIZE + 1 bytes, so that one of more than
// ZAN_BODY_SIZE can be told from the longest valid one.  False when the queue
// has been removed.
bool receive(int id, Packet &packet);

// Takes back a record of this type: false when none waits.
bool take_back(int id, long mtype);

} // namespace zan::sim
