// SPDX-License-Identifier: MIT
// Telling the daemon which value changes and events this module wants.
#include "cfg/request.h"

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

// `len` counts the whole path even where its copy was cut.
int subscribe(const char *function, int cmd, std::string_view payload, std::size_t len) {
    return exchange_locked({.function = function,
                            .type = ZAN_CLASS_NOTIFY,
                            .cmd = cmd,
                            .destination = "ZAN",
                            .payload = payload,
                            .len = static_cast<int>(std::min<std::size_t>(len, INT_MAX / 2)),
                            .timed = true});
}

int subscribe_to_event(const char *function, int cmd, int32_t event) {
    char code[sizeof event];
    std::memcpy(code, &event, sizeof event);
    return subscribe(function, cmd, {code, sizeof code}, sizeof code);
}

} // namespace
} // namespace zan

using namespace zan;

int zan_notify_register_value_changed(const char *path, unsigned int option, int flag) {
    if (path == nullptr || option >= option_limit)
        return ZAN_ERR;
    char payload[settings_size + registered_path_bound];
    payload[0] = static_cast<char>(flag);
    payload[1] = static_cast<char>(option);
    const auto copied =
        static_cast<std::size_t>(zan_strcpy(payload + settings_size, path, registered_path_bound));
    return subscribe("zan_notify_register_value_changed", ZAN_NOTIFY_REGISTER_VALUE,
                     {payload, settings_size + copied}, settings_size + std::strlen(path));
}

int zan_notify_unregister_value_changed(const char *path) {
    if (path == nullptr)
        return ZAN_ERR;
    char payload[unregistered_path_bound];
    const auto copied = static_cast<std::size_t>(zan_strcpy(payload, path, sizeof payload));
    return subscribe("zan_notify_unregister_value_changed", ZAN_NOTIFY_UNREGISTER_VALUE,
                     {payload, copied}, std::strlen(path));
}

int zan_notify_register_event(int event) {
    return subscribe_to_event("zan_notify_register_event", ZAN_NOTIFY_REGISTER_EVENT, event);
}

int zan_notify_unregister_event(int event) {
    return subscribe_to_event("zan_notify_unregister_event", ZAN_NOTIFY_UNREGISTER_EVENT, event);
}
