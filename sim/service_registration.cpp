// SPDX-License-Identifier: MIT
#include "daemon.h"
#include "text.h"

namespace zan::sim {

Result<std::string> register_module(Daemon &daemon, const Request &request) {
    const std::string queue = std::to_string(request.peer.address);
    if (request.record.src.empty())
        return Error{unknown_module, "no module name for queue " + queue};
    if (!request.peer.link->exists(request.peer.address))
        return Error{no_queue, "no such queue: " + queue};
    // A queue that comes again starts without the subscriptions of its last life.
    daemon.subscriptions.forget(request.peer);
    daemon.enrol(request.peer, {.name = request.record.src,
                                .instance = request.record.pid,
                                .pid = request.peer.link->last_sender()});
    return std::string();
}

Result<std::string> unregister_module(Daemon &daemon, const Request &request) {
    daemon.subscriptions.forget(request.peer);
    if (!daemon.modules.remove(request.peer))
        return Error{not_registered,
                     "not registered: queue " + std::to_string(request.peer.address)};
    return std::string();
}

} // namespace zan::sim
