// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trace.h"
#include "transport/outbox.h"
#include "transport/peer.h"

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace zan::sim {

class Daemon;

// Modules that come over System V queues: the request queue, which all of them
// write, and the queue on which registrations are answered.
class QueueLink final : public Link {
public:
    // Creates both queues and makes this process the last receiver of the request queue.
    static Result<Done> create(QueueLink &link);

    explicit QueueLink(Trace &trace) : trace_(trace) {}
    ~QueueLink() override { remove(); }
    QueueLink(const QueueLink &) = delete;
    QueueLink &operator=(const QueueLink &) = delete;

    int request_queue() const { return request_queue_; }
    int answer_queue() const { return answer_queue_; }

    // Hands each record to the daemon; returns when the queue has been removed.
    void serve(Daemon &daemon);

    // Ends serve(); safe beside it.
    void remove();

    std::string_view kind() const override { return "queue"; }
    Delivery answer(int address, const Record &record) override;
    Delivery notify(int address, const Record &record) override;
    bool exists(int address) const override;
    int last_reader(int address) const override;
    std::optional<Collector> take_collector() override;
    Module newcomer(const Record &registration) const override;

    // Sends what waits for room.  The queues that turned out to be gone.
    std::vector<int> flush();
    bool has_backlog() const;

private:
    using Clock = std::chrono::steady_clock;

    Delivery deliver(int queue, Outbox::Lane lane, Packet packet, const Record &record);
    Delivery wait_for_room(int queue, Outbox::Lane lane, Packet packet, const Record &record);
    Sent send(int queue, Outbox::Lane lane, const Packet &packet);
    bool flush_lane(int queue, Outbox &outbox, Outbox::Lane lane);
    void take_back_unclaimed();

    Trace &trace_;
    int request_queue_ = -1;
    int answer_queue_ = -1;
    std::map<int, Outbox> outboxes_;
    std::map<int, Clock::time_point> unclaimed_; // when each queue was last answered
    int only_unclaimed_ = -1;                    // the queue of the one answer on the answer queue
    std::atomic<bool> removed_ = false;
};

} // namespace zan::sim
