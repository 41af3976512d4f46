// SPDX-License-Identifier: MIT
// Subscriptions to value changes and events.
#include "msg/lock.h"
#include "msg/request.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace zan {
namespace {

constexpr unsigned int option_limit = 256;
constexpr std::size_t settings_size = 2;
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
    char code[sizeof event];
    std::memcpy(code, &event, sizeof event);
    return exchange_locked(subscription_request(command, {code, sizeof code}, sizeof code));
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
    char payload[settings_size + registered_path_bound];
    payload[0] = static_cast<char>(flag);
    payload[1] = static_cast<char>(option);
    const auto copied =
        static_cast<std::size_t>(zan_strcpy(payload + settings_size, path, registered_path_bound));
    return exchange(subscription_request(register_value_changed, {payload, settings_size + copied},
                                         settings_size + std::strlen(path)));
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
