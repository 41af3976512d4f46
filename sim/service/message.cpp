// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "service/messages.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <set>

namespace zan::sim {

Delivery deliver(Daemon &daemon, std::string_view name, const Record &record) {
    while (const Modules::Entry *const entry = daemon.modules.find(name)) {
        const Peer peer = entry->first;
        const Delivery delivery = daemon.forward(peer, record);
        // The entry of a queue that has gone is dropped now.  The module may have
        // started again and have another.
        if (delivery != Delivery::gone)
            return delivery;
    }
    return Delivery::gone;
}

namespace {

Result<std::string> send(Daemon &daemon, const std::string &name, const Record &record) {
    switch (deliver(daemon, name, record)) {
    case Delivery::sent:
    case Delivery::kept:
        return std::string();
    case Delivery::dropped:
    case Delivery::too_long:
        return Error{unreachable, "module cannot be reached: " + escape(name)};
    case Delivery::gone:
        break;
    }
    return no_such_module(name);
}

} // namespace

Result<std::string> send_text(Daemon &daemon, std::string_view module, std::string_view text) {
    Record record;
    record.type = ZAN_CLASS_MESSAGE;
    record.cmd = ZAN_MESSAGE_SEND;
    record.dst = module;
    record.src = "ZAN";
    record.pid = getpid();
    record.time = static_cast<std::int32_t>(time(nullptr));
    record.payload = text;
    return send(daemon, record.dst, record);
}

namespace {

// The answer wakes an agent in its select loop, which then polls for other records.
Result<std::string> wake_up(Daemon & /*daemon*/, const Request & /*request*/) {
    return std::string();
}

Result<std::string> send_to_module(Daemon &daemon, const Request &request) {
    return send(daemon, request.record.dst, request.record);
}

Result<std::string> send_to_all(Daemon &daemon, const Request &request) {
    std::set<std::string> names = daemon.modules.names();
    names.erase(request.record.src);
    if (const Module *const sender = daemon.modules.find(request.peer()))
        names.erase(sender->name);
    for (const std::string &name : names)
        deliver(daemon, name, request.record);
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CFG, ZAN_CFG_EMPTY, "empty", none, none, wake_up},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, "send", bytes, none, send_to_module,
            Reply::acknowledgement},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_ACK, "acknowledge", none, none, nullptr, Reply::none},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND, "send-unconfirmed", bytes, none, send_to_module,
            Reply::none},
    Service{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_ACK, "acknowledge", none, none, nullptr, Reply::none},
    Service{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, "send-all", bytes, none, send_to_all,
            Reply::acknowledgement},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
