// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "request/services.h"
#include "state/daemon.h"

#include <cstring>

#include <array>

namespace zan::sim {

namespace {

Result<Done> require_registration(Daemon &daemon, const Request &request) {
    if (daemon.modules.find(request.peer()) != nullptr)
        return Done{};
    return Error{not_registered, "not registered: " + name_of(request.peer())};
}

Result<std::int32_t> event_code(const Request &request) {
    std::int32_t code = 0;
    if (request.record.payload.size() != sizeof code)
        return Error{malformed, "malformed record: an event code has 4 bytes"};
    std::memcpy(&code, request.record.payload.data(), sizeof code);
    return code;
}

Result<std::string> answer_of(const Result<Done> &done) {
    if (!done)
        return done.error();
    return std::string();
}

Result<std::string> watch_value(Daemon &daemon, const Request &request) {
    if (const auto registered = require_registration(daemon, request); !registered)
        return registered.error();
    // A flag byte of unknown meaning, the option byte, the path.
    const std::string_view payload = request.record.payload;
    if (payload.size() < 3)
        return Error{malformed, "malformed record: no path to watch"};
    const auto option = static_cast<std::uint8_t>(payload[1]);
    return answer_of(
        daemon.subscriptions.watch(request.peer(), until_nul(payload.substr(2)), option));
}

Result<std::string> unwatch_value(Daemon &daemon, const Request &request) {
    return answer_of(daemon.subscriptions.unwatch(request.peer(), request.text()));
}

Result<std::string> await_event(Daemon &daemon, const Request &request) {
    if (const auto registered = require_registration(daemon, request); !registered)
        return registered.error();
    const auto code = event_code(request);
    if (!code)
        return code.error();
    return answer_of(daemon.subscriptions.add_event(request.peer(), *code));
}

Result<std::string> ignore_event(Daemon &daemon, const Request &request) {
    const auto code = event_code(request);
    if (!code)
        return code.error();
    return answer_of(daemon.subscriptions.remove_event(request.peer(), *code));
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_VALUE, "watch", watch, none, watch_value},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_EVENT, "await-event", event, none, await_event},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_VALUE, "unwatch", path, none, unwatch_value},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_EVENT, "ignore-event", event, none,
            ignore_event},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_VALUE_CHANGED, "value-changed", text, text, nullptr},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_EVENT, "event", event, event, nullptr},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
