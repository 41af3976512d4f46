// SPDX-License-Identifier: MIT
#include "transport/queue_transport.h"

#include <zan.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace zan::sim {

namespace {

// A module that has not collected its registration answer after this time is dead.
constexpr std::chrono::seconds collect_timeout{5};
// How many new registration answers trigger a check for uncollected ones.
constexpr std::size_t uncollected_batch = 4096;

} // namespace

Result<Done> QueueTransport::create(QueueTransport &transport) {
    transport.request_queue_ = create_queue();
    if (transport.request_queue_ >= 0)
        transport.answer_queue_ = create_queue();
    if (transport.answer_queue_ < 0)
        return Error{0, std::string("cannot create a message queue: ") + std::strerror(errno)};
    // Makes this process the last receiver, by which others recognise a live daemon.
    Packet self;
    if (send_now(transport.request_queue_, 1, "") != Sent::yes ||
        !receive(transport.request_queue_, self))
        return Error{0, std::string("cannot use a message queue: ") + std::strerror(errno)};
    return Done{};
}

void QueueTransport::serve(LockedRef<RequestHandler> handler) {
    Packet packet;
    while (receive(request_queue_, packet)) {
        const auto guard = handler.lock();
        const bool usable = packet.mtype >= 1 && packet.mtype <= INT_MAX &&
                            packet.mtype != request_queue_ && packet.mtype != answer_queue_;
        if (usable)
            guard->serve({this, static_cast<int>(packet.mtype)}, decode(packet.body));
        else
            log_.note("dropped a record of " + std::to_string(packet.body.size()) +
                      " bytes: its mtype " + std::to_string(packet.mtype) +
                      " is not the queue of a module");
    }
}

void QueueTransport::remove() {
    if (removed_.exchange(true))
        return;
    for (const int queue : {request_queue_, answer_queue_}) {
        if (queue >= 0)
            remove_queue(queue);
    }
}

Delivery QueueTransport::answer(int endpoint, const Record &record) {
    if (record.type == ZAN_CLASS_REGISTRATION) {
        const auto state = queue_state(answer_queue_);
        only_uncollected_ = state && state->records == 0 ? endpoint : -1;
        uncollected_[endpoint] = Clock::now();
        if (uncollected_.size() % uncollected_batch == 0)
            remove_uncollected();
        return deliver(answer_queue_, Outbox::Lane::answers, {endpoint, encode(record)}, record);
    }
    if (record.type < 1)
        return Delivery::dropped; // no queue type to send it under
    return deliver(endpoint, Outbox::Lane::answers, {record.type, encode(record)}, record);
}

Delivery QueueTransport::notify(int endpoint, const Record &record) {
    return deliver(endpoint, Outbox::Lane::notices, {record.type, encode(record)}, record);
}

bool QueueTransport::exists(int endpoint) const {
    return queue_exists(endpoint);
}

int QueueTransport::last_reader(int endpoint) const {
    const auto state = queue_state(endpoint);
    return state ? state->last_receiver : 0;
}

// The last receiver is the module's process only if no other answer could have been
// received since.
std::optional<Collector> QueueTransport::take_collector() {
    if (only_uncollected_ < 0)
        return std::nullopt;
    const auto state = queue_state(answer_queue_);
    if (!state || state->records != 0 || outboxes_.contains(answer_queue_))
        return std::nullopt;
    return Collector{std::exchange(only_uncollected_, -1), state->last_receiver};
}

Delivery QueueTransport::deliver(int queue, Outbox::Lane lane, Packet packet,
                                 const Record &record) {
    const auto outbox = outboxes_.find(queue);
    if (outbox != outboxes_.end() && !outbox->second.lane(lane).empty())
        return queue_for_retry(queue, lane, std::move(packet), record);
    Sent sent = send(queue, lane, packet);
    if (sent == Sent::full && queue == answer_queue_) {
        remove_uncollected();
        sent = send(queue, lane, packet);
    }
    switch (sent) {
    case Sent::yes:
        return Delivery::sent;
    case Sent::full:
        return queue_for_retry(queue, lane, std::move(packet), record);
    case Sent::too_long:
        return Delivery::too_long;
    case Sent::gone:
        outboxes_.erase(queue);
        return Delivery::gone;
    case Sent::refused:
        break;
    }
    log_.warn("cannot write to queue " + std::to_string(queue) + " of " + record.dst + ": " +
              std::strerror(errno));
    return Delivery::dropped;
}

Delivery QueueTransport::queue_for_retry(int queue, Outbox::Lane lane, Packet packet,
                                         const Record &record) {
    Outbox &outbox = outboxes_[queue];
    if (outbox.keep(lane, std::move(packet)))
        return Delivery::kept;
    outbox.drops.add(log_, name_of({this, queue}), record.dst);
    return Delivery::dropped;
}

// Notifications fill a queue only halfway, which leaves room for the answers of a
// module that does not read its notifications.
Sent QueueTransport::send(int queue, Outbox::Lane lane, const Packet &packet) {
    if (lane == Outbox::Lane::notices) {
        const auto state = queue_state(queue);
        if (state && state->used != 0 && state->used + packet.body.size() > state->capacity / 2)
            return Sent::full;
    }
    return send_now(queue, packet.mtype, packet.body);
}

std::vector<int> QueueTransport::flush() {
    std::vector<int> gone;
    for (auto entry = outboxes_.begin(); entry != outboxes_.end();) {
        auto &[queue, outbox] = *entry;
        if (queue == answer_queue_)
            remove_uncollected();
        const bool reachable = flush_lane(queue, outbox, Outbox::Lane::answers) &&
                               flush_lane(queue, outbox, Outbox::Lane::notices);
        if (!reachable)
            gone.push_back(queue);
        if (reachable && outbox.empty())
            outbox.drops.end(log_, name_of({this, queue}));
        entry = !reachable || outbox.empty() ? outboxes_.erase(entry) : std::next(entry);
    }
    return gone;
}

// False when the queue is gone.
bool QueueTransport::flush_lane(int queue, Outbox &outbox, Outbox::Lane lane) {
    auto &waiting = outbox.lane(lane);
    while (!waiting.empty()) {
        const Sent sent = send(queue, lane, waiting.front());
        if (sent == Sent::gone)
            return false;
        if (sent == Sent::full)
            break;
        outbox.pop(lane);
    }
    return true;
}

bool QueueTransport::has_backlog() const {
    return !outboxes_.empty();
}

// Without this, answers to modules that died before they collected them would fill
// the queue that all registrations share.
void QueueTransport::remove_uncollected() {
    only_uncollected_ = -1; // zansim itself may become the last receiver
    const Clock::time_point now = Clock::now();
    std::erase_if(uncollected_, [&](const auto &entry) {
        const auto &[queue, since] = entry;
        if (queue_exists(queue) && now - since < collect_timeout)
            return false;
        while (remove_record(answer_queue_, queue)) {
        }
        return true;
    });
}

} // namespace zan::sim
