// SPDX-License-Identifier: MIT
// Subscriptions to value changes and events.
#include "wire/subscription.h"

#include "msg/lock.h"
#include "msg/request.h"
#include "wire/event.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace zan {
namespace {

constexpr unsigned int option_limit = 256;
constexpr int registered_path_bound = 1024;
constexpr int unregistered_path_bound = 1025;

constexpr Command subscription(const char *function, int cmd) {
    return {.function = function,
            .cmd = cmd,
            .type = ZAN_CLASS_NOTIFY,
            .destination = ZAN_MODULE_CORE,
            .timed = true};
}
constexpr Command register_value_changed =
    subscription("zan_notify_register_value_changed", ZAN_NOTIFY_REGISTER_VALUE);
constexpr Command unregister_value_changed =
    subscription("zan_notify_unregister_value_changed", ZAN_NOTIFY_UNREGISTER_VALUE);
constexpr Command register_event =
    subscription("zan_notify_register_event", ZAN_NOTIFY_REGISTER_EVENT);
constexpr Command unregister_event =
    subscription("zan_notify_unregister_event", ZAN_NOTIFY_UNREGISTER_EVENT);

// `len` counts the whole path even where its copy was cut.
Request subscription_request(const Command &command, std::string_view payload, std::size_t len) {
    return {.command = command,
            .payload = payload,
            .len = static_cast<int>(std::min<std::size_t>(len, INT_MAX / 2))};
}

int subscribe_to_event(const Command &command, int32_t event) {
    const auto code = wire::format_event(event);
    return exchange_locked(subscription_request(command, {code.data(), code.size()}, code.size()));
}

} // namespace
} // namespace zan

using namespace zan;

int zan_notify_register_value_changed(const char *path, unsigned int option, int flag) {
    if (path == nullptr)
        return ZAN_ERR;
    // Before the option is checked, as on every device in the field: a refused call waits
    // for the lock, too, and unblocks SIGTERM when it returns.
    const ApiLock lock;
    if (option >= option_limit)
        return ZAN_ERR;
    const auto settings = wire::format_subscription_settings(static_cast<uint8_t>(flag),
                                                             static_cast<uint8_t>(option));
    char payload[settings.size() + registered_path_bound];
    std::copy(settings.begin(), settings.end(), payload);
    // Copied here, because a path that is cut prints a warning.
    const auto copied = static_cast<std::size_t>(
        zan_strcpy(payload + settings.size(), path, registered_path_bound));
    return exchange(subscription_request(register_value_changed,
                                         {payload, settings.size() + copied},
                                         settings.size() + std::strlen(path)));
}

int zan_notify_unregister_value_changed(const char *path) {
    if (path == nullptr)
        return ZAN_ERR;
    char payload[unregistered_path_bound];
    const auto copied = static_cast<std::size_t>(zan_strcpy(payload, path, sizeof payload));
    return exchange_locked(
        subscription_request(unregister_value_changed, {payload, copied}, std::strlen(path)));
}

int zan_notify_register_event(int event) {
    return subscribe_to_event(register_event, event);
}

int zan_notify_unregister_event(int event) {
    return subscribe_to_event(unregister_event, event);
}
