// SPDX-License-Identifier: MIT
#include "daemon.h"

#include "text.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace zan::sim {

namespace {

// What the receiving side keeps of the fields of a notification.
constexpr std::size_t source_field = ZAN_NAME_SIZE - 1;
constexpr std::size_t value_field = 1023;

std::string command_text(const Record &record) {
    const std::string_view name = class_name(record.type);
    if (name.empty())
        return "unknown class " + std::to_string(record.type);
    const Service *const service = find_service(record.type, record.cmd);
    if (service == nullptr)
        return "unknown command " + std::to_string(record.cmd) + " of class " + std::string(name);
    return std::string(name) + ' ' + std::string(service->name) + " is not served";
}

Result<std::string> outcome_of(Daemon &daemon, const Peer &peer, const Received &received) {
    if (!received.defect.empty())
        return Error{malformed, "malformed record: " + received.defect};
    const Service *const service = find_service(received.record.type, received.record.cmd);
    if (service == nullptr || service->handler == nullptr)
        return Error{unknown_command, command_text(received.record)};
    return service->handler(daemon, {received.record, peer});
}

Reply reply_to(const Record &request) {
    const Service *const service = find_service(request.type, request.cmd);
    return service == nullptr ? Reply::same_command : service->reply;
}

// Who answers for a class.
std::string_view answering_name(std::int32_t type) {
    return type == ZAN_CLASS_CFG ? "ZAN_CFG" : "ZAN";
}

} // namespace

void Daemon::serve(const Peer &peer, const Received &received) {
    const Record &request = received.record;
    ++statistics.requests;
    trace_.received(peer.address, received);
    // The pid of a registration is its instance.
    if (request.type != ZAN_CLASS_REGISTRATION && received.defect.empty()) {
        if (Module *const module = modules.find(peer))
            module->pid = request.pid;
    }
    const Result<std::string> outcome = outcome_of(*this, peer, received);
    if (reply_to(request) != Reply::none)
        answer(peer, request, outcome);
    else if (!outcome)
        trace_.note("no answer to " + request.src + ": " + outcome.error().text);
}

void Daemon::answer(const Peer &peer, const Record &request, const Result<std::string> &outcome) {
    Record answer;
    answer.type = request.type;
    answer.cmd = reply_to(request) == Reply::acknowledgement ? int{ZAN_MESSAGE_ACK} : request.cmd;
    answer.dst = request.src;
    answer.src = answering_name(request.type);
    answer.pid = getpid();
    answer.result = outcome ? 1 : outcome.error().code;
    answer.payload = outcome ? *outcome : outcome.error().text.substr(0, ZAN_PATH_SIZE - 1);
    const Service *const service = find_service(request.type, request.cmd);
    // Without payload the receiver would show the text of the record before.
    if (outcome && answer.payload.empty() && service->answer == Form::text)
        answer.payload.assign(1, '\0');
    trace_.sent(peer.address, answer);
    Delivery delivery = Delivery::too_long;
    if (answer.payload.size() <= ZAN_DATA_SIZE)
        delivery = peer.link->answer(peer.address, answer);
    if (delivery == Delivery::too_long && outcome) {
        const std::string size = std::to_string(answer.payload.size());
        return this->answer(peer, request,
                            Error{answer_too_long, "answer of " + size + " bytes is too long"});
    }
    account(peer, delivery);
}

void Daemon::announce(std::string_view source, std::string_view path, Change change,
                      std::string_view value) {
    ++tree_version_;
    work.notify_one();
    const auto elements = parse_path(path);
    if (!elements)
        return;
    const std::string head = encode_field(source, source_field) + ' ' + std::string(path) + ' ' +
                             encode_field(value, value_field) + ' ' +
                             std::to_string(static_cast<int>(change)) + ' ';
    for (const Watch &watch : subscriptions.watching(*elements, change == Change::deleted))
        notify(watch.peer, ZAN_NOTIFY_VALUE_CHANGED,
               head + std::to_string(watch.option) + ' ' + watch.path);
}

void Daemon::raise_event(std::int32_t code) {
    const std::string payload(reinterpret_cast<const char *>(&code), sizeof code);
    for (const Peer &peer : subscriptions.awaiting(code))
        notify(peer, ZAN_NOTIFY_EVENT, payload);
}

void Daemon::notify(const Peer &peer, std::int32_t cmd, std::string payload) {
    const Module *const module = modules.find(peer);
    if (module == nullptr)
        return; // forgotten while the others were being told
    Record record;
    record.type = ZAN_CLASS_NOTIFY;
    record.cmd = cmd;
    record.dst = module->name;
    record.src = "ZAN";
    record.pid = getpid();
    record.time = static_cast<std::int32_t>(time(nullptr));
    record.payload = std::move(payload);
    ++statistics.notifications;
    forward(peer, record);
}

Delivery Daemon::forward(const Peer &peer, const Record &record) {
    trace_.sent(peer.address, record);
    return account(peer, peer.link->notify(peer.address, record));
}

Delivery Daemon::account(const Peer &peer, Delivery delivery) {
    switch (delivery) {
    case Delivery::sent:
        break;
    case Delivery::kept:
        work.notify_one();
        break;
    case Delivery::gone:
        forget(peer);
        break;
    case Delivery::dropped:
    case Delivery::too_long:
        ++statistics.dropped;
        break;
    }
    return delivery;
}

void Daemon::enrol(const Peer &peer, Module module) {
    if (modules.size() >= next_look_) {
        for (const Peer &vanished : modules.vanished())
            forget(vanished);
        next_look_ = std::max<std::size_t>(256, 2 * modules.size());
    }
    modules.add(peer, std::move(module));
}

void Daemon::forget(const Peer &peer) {
    subscriptions.forget(peer);
    const Module *const module = modules.find(peer);
    const std::string queue = "queue " + std::to_string(peer.address);
    trace_.note(module == nullptr ? queue + " is gone"
                                  : queue + " is gone: forgot " + module->name);
    modules.remove(peer);
}

} // namespace zan::sim
