// SPDX-License-Identifier: MIT
//
// Numbers as they travel, written down apart from the library's header.
#pragma once

namespace zan::test {

inline constexpr int class_cfg = 1;
inline constexpr int class_cwmp = 2;
inline constexpr int class_registration = 3;
inline constexpr int class_message = 4;
inline constexpr int class_notify = 5;
inline constexpr int class_action = 7;
inline constexpr int class_control = 8;
inline constexpr int class_broadcast = 9;

// Configuration.
inline constexpr int cmd_get = 1;
inline constexpr int cmd_set = 2;
inline constexpr int cmd_delete = 3;
inline constexpr int cmd_reload = 4;
inline constexpr int cmd_dump = 5;
inline constexpr int cmd_set_file = 7;
inline constexpr int cmd_print = 12;
inline constexpr int cmd_get_attr = 15;
inline constexpr int cmd_set_attr = 16;
inline constexpr int cmd_login = 19;
inline constexpr int cmd_empty = 20; // is answered, no more
inline constexpr int cmd_reset = 21;
inline constexpr int cmd_convert_path = 22;
inline constexpr int cmd_array = 23;
inline constexpr int cmd_anchor = 25;
inline constexpr int cmd_ifname = 29;
inline constexpr int cmd_convert = 31;
inline constexpr int cmd_apply_all = 32;
inline constexpr int cmd_apply_firewall = 33;
inline constexpr int cmd_pid = 34;

// Registration.
inline constexpr int cmd_register = 0;
inline constexpr int cmd_unregister = 1;

// Messages, also to all.
inline constexpr int cmd_send_with_ack = 1;
inline constexpr int cmd_ack = 2;
inline constexpr int cmd_send_all = 3;
inline constexpr int cmd_send = 4;

// Subscriptions and notifications.
inline constexpr int cmd_watch = 0;
inline constexpr int cmd_await_event = 1;
inline constexpr int cmd_unwatch = 2;
inline constexpr int cmd_ignore_event = 3;
inline constexpr int cmd_value_changed = 7;
inline constexpr int cmd_event = 8;

} // namespace zan::test
