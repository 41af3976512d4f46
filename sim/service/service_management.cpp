// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "state/daemon.h"

namespace zan::sim {

namespace {

// The library writes the server's own name into everything of this class; an answer
// that names its receiver goes to that one.
Result<std::string> pass_answer(Daemon &daemon, const Record &record) {
    const bool addressed = record.dst != Management::module;
    const auto asker = daemon.management.take(record.cmd, addressed ? record.dst : std::string());
    if (!asker) {
        daemon.trace().note("nobody waits for this answer");
        return std::string();
    }
    Record answer = record;
    answer.dst = asker->name;
    daemon.pass_answer(*asker, std::move(answer));
    return std::string();
}

Result<std::string> answer_from_script(Daemon &daemon, const Request &request) {
    const Record &record = request.record;
    const Management::Scripted *const script =
        daemon.management.scripted(record.cmd, request.text());
    if (script == nullptr)
        return no_such_module(Management::module);
    Record answer = answer_to(request.asker);
    answer.result = script->result;
    answer.arg = script->arg;
    answer.payload = script->payload;
    daemon.pass_answer(request.asker, std::move(answer));
    return std::string();
}

} // namespace

Result<std::string> pass_management_request(Daemon &daemon, const Request &request) {
    const Module *const sender = daemon.modules.find(request.peer());
    if (sender != nullptr && sender->name == Management::module)
        return pass_answer(daemon, request.record);
    // Asked before: an answer to a request that is not remembered would reach somebody
    // else.  Who waits for a server that has gone is told below, which makes room.
    if (const Modules::Entry *const entry = daemon.modules.find(Management::module);
        entry != nullptr && entry->first.link->exists(entry->first.address)) {
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
    daemon.management.expect(request.asker, server->first);
    daemon.work.notify_one();
    return std::string();
}

} // namespace zan::sim
