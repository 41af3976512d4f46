// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "state/daemon.h"

#include <unistd.h>

#include <ctime>

namespace zan::sim {

Delivery deliver(Daemon &daemon, std::string_view name, const Record &record) {
    while (const Modules::Entry *const entry = daemon.modules.find(name)) {
        const Peer peer = entry->first;
        const Delivery delivery = daemon.forward(peer, record);
        // Behind a queue that has gone, and is forgotten now, may stand another: of
        // the same module, started again.
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

// Its answer is what an agent waits for in its select loop, to look then for what
// has come meanwhile.
Result<std::string> wake_up(Daemon & /*daemon*/, const Request & /*request*/) {
    return std::string();
}

Result<std::string> send_to_module(Daemon &daemon, const Request &request) {
    return send(daemon, request.record.dst, request.record);
}

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

Result<std::string> send_to_all(Daemon &daemon, const Request &request) {
    std::set<std::string> names = daemon.modules.names();
    names.erase(request.record.src);
    if (const Module *const sender = daemon.modules.find(request.peer()))
        names.erase(sender->name);
    for (const std::string &name : names)
        deliver(daemon, name, request.record);
    return std::string();
}

} // namespace zan::sim
