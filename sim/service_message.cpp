// SPDX-License-Identifier: MIT
#include "daemon.h"
#include "text.h"

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

Result<std::string> send_to_module(Daemon &daemon, const Request &request) {
    const std::string &name = request.record.dst;
    switch (deliver(daemon, name, request.record)) {
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

// Its answer is what an agent waits for in its select loop, to look then for what
// has come meanwhile.
Result<std::string> wake_up(Daemon & /*daemon*/, const Request & /*request*/) {
    return std::string();
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
