// SPDX-License-Identifier: MIT
#include "transport/queue_link.h"

#include "state/daemon.h"

#include <zan.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace zan::sim {

namespace {

// A registration that nobody collected after this time has no module behind it.
constexpr std::chrono::seconds claim_time{5};
// Answers that were collected are not told from others until somebody looks.
constexpr std::size_t unclaimed_batch = 4096;

} // namespace

Result<Done> QueueLink::create(QueueLink &link) {
    link.request_queue_ = create_queue();
    if (link.request_queue_ >= 0)
        link.answer_queue_ = create_queue();
    if (link.answer_queue_ < 0)
        return Error{0, std::string("cannot create a message queue: ") + std::strerror(errno)};
    // Whoever looks at the queue sees at once which process serves it.
    Packet self;
    if (send_now(link.request_queue_, 1, "") != Sent::yes || !receive(link.request_queue_, self))
        return Error{0, std::string("cannot use a message queue: ") + std::strerror(errno)};
    return Done{};
}

void QueueLink::serve(Daemon &daemon) {
    Packet packet;
    while (receive(request_queue_, packet)) {
        const auto guard = daemon.lock();
        const bool usable = packet.mtype >= 1 && packet.mtype <= INT_MAX &&
                            packet.mtype != request_queue_ && packet.mtype != answer_queue_;
        if (usable)
            daemon.serve({this, static_cast<int>(packet.mtype)}, decode(packet.body));
        else
            trace_.note("dropped a record of " + std::to_string(packet.body.size()) +
                        " bytes: its mtype " + std::to_string(packet.mtype) +
                        " is not the queue of a module");
    }
}

void QueueLink::remove() {
    if (removed_.exchange(true))
        return;
    for (const int queue : {request_queue_, answer_queue_}) {
        if (queue >= 0)
            remove_queue(queue);
    }
}

Delivery QueueLink::answer(int address, const Record &record) {
    if (record.type == ZAN_CLASS_REGISTRATION) {
        const auto state = queue_state(answer_queue_);
        only_unclaimed_ = state && state->records == 0 ? address : -1;
        unclaimed_[address] = Clock::now();
        if (unclaimed_.size() % unclaimed_batch == 0)
            take_back_unclaimed();
        return deliver(answer_queue_, Outbox::Lane::answers, {address, encode(record)}, record);
    }
    if (record.type < 1)
        return Delivery::dropped; // no queue type to send it under
    return deliver(address, Outbox::Lane::answers, {record.type, encode(record)}, record);
}

Delivery QueueLink::notify(int address, const Record &record) {
    return deliver(address, Outbox::Lane::notices, {record.type, encode(record)}, record);
}

bool QueueLink::exists(int address) const {
    return queue_exists(address);
}

int QueueLink::last_reader(int address) const {
    const auto state = queue_state(address);
    return state ? state->last_receiver : 0;
}

// The last receiver is the module's process only if no other answer could have been
// received since.
std::optional<Collector> QueueLink::take_collector() {
    if (only_unclaimed_ < 0)
        return std::nullopt;
    const auto state = queue_state(answer_queue_);
    if (!state || state->records != 0 || outboxes_.contains(answer_queue_))
        return std::nullopt;
    return Collector{std::exchange(only_unclaimed_, -1), state->last_receiver};
}

// The pid of a registration is the module's instance.
Module QueueLink::newcomer(const Record &registration) const {
    return {.name = registration.src, .instance = registration.pid};
}

Delivery QueueLink::deliver(int queue, Outbox::Lane lane, Packet packet, const Record &record) {
    const auto outbox = outboxes_.find(queue);
    if (outbox != outboxes_.end() && !outbox->second.lane(lane).empty())
        return wait_for_room(queue, lane, std::move(packet), record);
    Sent sent = send(queue, lane, packet);
    if (sent == Sent::full && queue == answer_queue_) {
        take_back_unclaimed();
        sent = send(queue, lane, packet);
    }
    switch (sent) {
    case Sent::yes:
        return Delivery::sent;
    case Sent::full:
        return wait_for_room(queue, lane, std::move(packet), record);
    case Sent::too_long:
        return Delivery::too_long;
    case Sent::gone:
        outboxes_.erase(queue);
        return Delivery::gone;
    case Sent::refused:
        break;
    }
    trace_.warn("cannot write to queue " + std::to_string(queue) + " of " + record.dst + ": " +
                std::strerror(errno));
    return Delivery::dropped;
}

Delivery QueueLink::wait_for_room(int queue, Outbox::Lane lane, Packet packet,
                                  const Record &record) {
    Outbox &outbox = outboxes_[queue];
    if (outbox.keep(lane, std::move(packet)))
        return Delivery::kept;
    outbox.losses.add(trace_, name_of({this, queue}), record.dst);
    return Delivery::dropped;
}

// Notifications fill a queue only halfway, so that a module that does not read
// them finds room for its answers.
Sent QueueLink::send(int queue, Outbox::Lane lane, const Packet &packet) {
    if (lane == Outbox::Lane::notices) {
        const auto state = queue_state(queue);
        if (state && state->used != 0 && state->used + packet.body.size() > state->capacity / 2)
            return Sent::full;
    }
    return send_now(queue, packet.mtype, packet.body);
}

std::vector<int> QueueLink::flush() {
    std::vector<int> gone;
    for (auto entry = outboxes_.begin(); entry != outboxes_.end();) {
        auto &[queue, outbox] = *entry;
        if (queue == answer_queue_)
            take_back_unclaimed();
        const bool reachable = flush_lane(queue, outbox, Outbox::Lane::answers) &&
                               flush_lane(queue, outbox, Outbox::Lane::notices);
        if (!reachable)
            gone.push_back(queue);
        if (reachable && outbox.empty())
            outbox.losses.end(trace_, name_of({this, queue}));
        entry = !reachable || outbox.empty() ? outboxes_.erase(entry) : std::next(entry);
    }
    return gone;
}

// False when the queue is gone.
bool QueueLink::flush_lane(int queue, Outbox &outbox, Outbox::Lane lane) {
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

bool QueueLink::has_backlog() const {
    return !outboxes_.empty();
}

// Modules that died between registering and collecting the answer would fill the
// queue that all registrations share.
void QueueLink::take_back_unclaimed() {
    only_unclaimed_ = -1; // zansim itself may become the last receiver
    const Clock::time_point now = Clock::now();
    std::erase_if(unclaimed_, [&](const auto &entry) {
        const auto &[queue, since] = entry;
        if (queue_exists(queue) && now - since < claim_time)
            return false;
        while (take_back(answer_queue_, queue)) {
        }
        return true;
    });
}

} // namespace zan::sim
