// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "state/daemon.h"

namespace zan::sim {

Result<std::string> register_module(Daemon &daemon, const Request &request) {
    if (request.record.src.empty())
        return Error{unknown_module, "no module name for " + name_of(request.peer())};
    if (!request.peer().link->exists(request.peer().address))
        return Error{no_queue, "no such queue: " + std::to_string(request.peer().address)};
    // A queue that comes again starts without the subscriptions of its last life.
    daemon.remove(request.peer());
    daemon.enrol(request.peer(), request.peer().link->newcomer(request.record));
    return std::string();
}

Result<std::string> unregister_module(Daemon &daemon, const Request &request) {
    if (!daemon.remove(request.peer()))
        return Error{not_registered, "not registered: " + name_of(request.peer())};
    return std::string();
}

} // namespace zan::sim
