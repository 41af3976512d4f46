// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "request/services.h"
#include "state/daemon.h"

#include <array>

namespace zan::sim {

namespace {

Module module_of(const Request &request) {
    const Record &record = request.record;
    if (request.peer().transport->has_agents())
        return {.name = record.src, .pid = record.pid, .agent = true};
    return {.name = record.src, .instance = record.pid};
}

Result<std::string> register_module(Daemon &daemon, const Request &request) {
    if (request.record.src.empty())
        return Error{unknown_module, "no module name for " + name_of(request.peer())};
    if (!request.peer().transport->exists(request.peer().endpoint))
        return Error{no_queue, "no such queue: " + std::to_string(request.peer().endpoint)};
    // A queue that registers again starts without subscriptions.
    daemon.remove(request.peer());
    daemon.add_module(request.peer(), module_of(request));
    return std::string();
}

Result<std::string> unregister_module(Daemon &daemon, const Request &request) {
    if (!daemon.remove(request.peer()))
        return Error{not_registered, "not registered: " + name_of(request.peer())};
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_REGISTRATION, ZAN_REGISTER, "register", none, none, register_module},
    Service{ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, "unregister", none, none, unregister_module},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
