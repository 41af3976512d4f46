// SPDX-License-Identifier: MIT
#pragma once

#include "base/locked.h"
#include "base/log.h"
#include "base/result.h"
#include "transport/outbox.h"
#include "transport/transport.h"

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace zan::sim {

// Modules that are reached over System V queues.  They write to one request queue,
// and their registrations are answered on another.
class QueueTransport final : public Transport {
public:
    // Creates both queues and makes this process the last receiver of the request queue.
    static Result<Done> create(QueueTransport &transport);

    explicit QueueTransport(Log &log) : log_(log) {}
    ~QueueTransport() override { remove(); }
    QueueTransport(const QueueTransport &) = delete;
    QueueTransport &operator=(const QueueTransport &) = delete;

    int request_queue() const { return request_queue_; }
    int answer_queue() const { return answer_queue_; }

    // Hands each record to the handler; returns when the queue has been removed.
    void serve(LockedRef<RequestHandler> handler);

    // Ends serve(); may be called meanwhile.
    void remove();

    std::string_view kind() const override { return "queue"; }
    bool has_agents() const override { return false; }
    Delivery answer(int endpoint, const Record &record) override;
    Delivery notify(int endpoint, const Record &record) override;
    bool exists(int endpoint) const override;
    int last_reader(int endpoint) const override;
    std::optional<Collector> take_collector() override;

    // Sends what waits for room.  Returns the queues that no longer exist.
    std::vector<int> flush();
    bool has_backlog() const;

private:
    using Clock = std::chrono::steady_clock;

    Delivery deliver(int queue, Outbox::Lane lane, Packet packet, const Record &record);
    Delivery queue_for_retry(int queue, Outbox::Lane lane, Packet packet, const Record &record);
    Sent send(int queue, Outbox::Lane lane, const Packet &packet);
    bool flush_lane(int queue, Outbox &outbox, Outbox::Lane lane);
    void remove_uncollected();

    Log &log_;
    int request_queue_ = -1;
    int answer_queue_ = -1;
    std::map<int, Outbox> outboxes_;
    std::map<int, Clock::time_point> uncollected_; // when each queue was last answered
    int only_uncollected_ = -1; // the queue of the one answer on the answer queue
    std::atomic<bool> removed_ = false;
};

} // namespace zan::sim
