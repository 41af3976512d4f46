// SPDX-License-Identifier: MIT
//
// Records by what they are. Fields that are not given are zero.
#pragma once

#include "support/commands.h"
#include "support/raw.h"

#include <cstdint>
#include <string>
#include <utility>

namespace zan::test {

inline Fields record_of(std::int32_t type, std::int32_t cmd, Fields rest = {}) {
    rest.type = type;
    rest.cmd = cmd;
    return rest;
}

inline Fields cfg_record(std::int32_t cmd, Fields rest = {}) {
    return record_of(class_cfg, cmd, std::move(rest));
}
inline Fields cwmp_record(std::int32_t code, Fields rest = {}) {
    return record_of(class_cwmp, code, std::move(rest));
}
inline Fields registration_record(std::int32_t cmd, Fields rest = {}) {
    return record_of(class_registration, cmd, std::move(rest));
}
inline Fields message_record(std::int32_t cmd, Fields rest = {}) {
    return record_of(class_message, cmd, std::move(rest));
}
inline Fields notify_record(std::int32_t cmd, Fields rest = {}) {
    return record_of(class_notify, cmd, std::move(rest));
}
inline Fields broadcast_record(std::int32_t cmd, Fields rest = {}) {
    return record_of(class_broadcast, cmd, std::move(rest));
}

// A message, and a message to all, with this text.
inline Fields text_message(std::string text) {
    return message_record(cmd_send, {.payload = std::move(text)});
}
inline Fields text_broadcast(std::string text) {
    return broadcast_record(cmd_send_all, {.payload = std::move(text)});
}

// A word as it stands in a payload.
inline std::string word_bytes(std::int32_t word) {
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

inline Fields event_record(std::int32_t code) {
    return notify_record(cmd_event, {.payload = word_bytes(code)});
}
// The text as "SOURCE PATH VALUE KIND OPTION SUBSCRIBED".
inline Fields value_change_record(std::string text) {
    return notify_record(cmd_value_changed, {.payload = std::move(text)});
}

} // namespace zan::test
