// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace zan::sim {

// System V queues.  Only receive() blocks.

struct QueueState {
    std::size_t records = 0;
    std::size_t used = 0;     // bytes
    std::size_t capacity = 0; // bytes
    pid_t last_sender = 0;
    pid_t last_receiver = 0;
};

// Creates a queue that every user may use; -1 with errno on failure.
int create_queue();
bool remove_queue(int id);

// Nothing, with errno, if the queue does not exist or cannot be inspected.
std::optional<QueueState> queue_state(int id);
bool queue_exists(int id);

enum class Sent { yes, full, too_long, gone, refused };
Sent send_now(int id, long mtype, std::string_view body);

// A record with its queue type.
struct Packet {
    long mtype = 0;
    std::string body;
};

// Waits for the next record.  Returns at most ZAN_BODY_SIZE + 1 bytes, which makes
// records that are too long recognisable.  False if the queue was removed.
bool receive(int id, Packet &packet);

// Removes a record of this type.  False if there is none.
bool remove_record(int id, long mtype);

} // namespace zan::sim
