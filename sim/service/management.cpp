// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "request/services.h"
#include "service/messages.h"

#include <array>

namespace zan::sim {

namespace {

// The library writes the server's own name into every record of this class.  An answer
// that names another module goes to that module.
Result<std::string> pass_answer(Daemon &daemon, const Record &record) {
    const bool addressed = record.dst != Management::module;
    const auto requester =
        daemon.management.take(record.cmd, addressed ? record.dst : std::string());
    if (!requester) {
        daemon.trace().note("no pending request for this answer");
        return std::string();
    }
    Record answer = record;
    answer.dst = requester->name;
    daemon.pass_answer(*requester, std::move(answer));
    return std::string();
}

Result<std::string> answer_from_script(Daemon &daemon, const Request &request) {
    const Record &record = request.record;
    const Management::Scripted *const script =
        daemon.management.scripted(record.cmd, request.text());
    if (script == nullptr)
        return no_such_module(Management::module);
    Record answer = answer_to(request.requester);
    answer.result = script->result;
    answer.arg = script->arg;
    answer.payload = script->payload;
    daemon.pass_answer(request.requester, std::move(answer));
    return std::string();
}

Result<std::string> pass_management_request(Daemon &daemon, const Request &request) {
    const Module *const sender = daemon.modules.find(request.peer());
    if (sender != nullptr && sender->name == Management::module)
        return pass_answer(daemon, request.record);
    // Checked before the request is sent: the answer to a request that is not pending
    // would reach another requester.  Requests to a server that has gone are refused
    // below, which makes room.
    if (const Modules::Entry *const entry = daemon.modules.find(Management::module);
        entry != nullptr && entry->first.transport->exists(entry->first.endpoint)) {
        if (const auto room = daemon.management.room(); !room)
            return room.error();
    }
    switch (deliver(daemon, Management::module, request.record)) {
    case Delivery::gone:
        return answer_from_script(daemon, request);
    case Delivery::dropped:
    case Delivery::too_long:
        return Error{unreachable, "module cannot be reached: " + std::string(Management::module)};
    case Delivery::sent:
    case Delivery::kept:
        break;
    }
    const Modules::Entry *const server = daemon.modules.find(Management::module);
    daemon.management.expect(request.requester, server->first);
    daemon.work.notify_one();
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CWMP, any_command, "request", bytes, bytes, pass_management_request,
            Reply::by_handler},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
