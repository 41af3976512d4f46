/* SPDX-License-Identifier: MIT */
/*
 * The layout of the public types, written down a second time for C and for C++.
 * The body of a record is the same everywhere; what depends on the width of a
 * long or a pointer is given for both widths.
 */
#pragma once

#include <stddef.h>
#include <zan.h>

#ifdef __cplusplus
#define ZAN_LAYOUT(condition) static_assert(condition, #condition)
#else
#define ZAN_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

#define ZAN_FIELD(type, field, offset, size)                                                       \
    ZAN_LAYOUT(offsetof(type, field) == (offset));                                                 \
    ZAN_LAYOUT(sizeof(((type *)0)->field) == (size))

#define ZAN_BY_WIDTH(on_32_bits, on_64_bits) (sizeof(long) == 4 ? (on_32_bits) : (on_64_bits))

ZAN_LAYOUT(sizeof(long) == 4 || sizeof(long) == 8);
ZAN_LAYOUT(sizeof(long) == sizeof(void *));
ZAN_LAYOUT(sizeof(int) == 4);

ZAN_FIELD(zan_body, type, 0, 4);
ZAN_FIELD(zan_body, cmd, 4, 4);
ZAN_FIELD(zan_body, dst, 8, 32);
ZAN_FIELD(zan_body, src, 40, 32);
ZAN_FIELD(zan_body, pid, 72, 4);
ZAN_FIELD(zan_body, time, 76, 4);
ZAN_FIELD(zan_body, spare, 80, 4);
ZAN_FIELD(zan_body, result, 84, 4);
ZAN_FIELD(zan_body, aux, 88, 4);
ZAN_FIELD(zan_body, arg, 92, 4);
ZAN_FIELD(zan_body, len, 96, 4);
ZAN_FIELD(zan_body, data, 100, 35000);
ZAN_LAYOUT(sizeof(zan_body) == 35100);

ZAN_FIELD(zan_msg, mtype, 0, ZAN_BY_WIDTH(4, 8));
ZAN_FIELD(zan_msg, body, ZAN_BY_WIDTH(4, 8), 35100);
ZAN_LAYOUT(sizeof(zan_msg) == ZAN_BY_WIDTH(35104, 35112));

ZAN_FIELD(zan_resp, ptr, 0, ZAN_BY_WIDTH(4, 8));
ZAN_FIELD(zan_resp, data, ZAN_BY_WIDTH(4, 8), 35000);
ZAN_FIELD(zan_resp, len, ZAN_BY_WIDTH(35004, 35008), 4);
ZAN_LAYOUT(sizeof(zan_resp) == ZAN_BY_WIDTH(35008, 35016));

ZAN_FIELD(zan_action_data, code, 0, 4);
ZAN_FIELD(zan_action_data, wait, 4, 4);
ZAN_FIELD(zan_action_data, param, 8, 4);
ZAN_FIELD(zan_action_data, name, 12, 1024);
ZAN_LAYOUT(sizeof(zan_action_data) == 1036);

ZAN_FIELD(zan_log_entry, name, 0, 32);
ZAN_FIELD(zan_log_entry, level, 32, 4);
ZAN_FIELD(zan_log_entry, dest, 36, 1);
ZAN_FIELD(zan_log_entry, in_use, 37, 1);
ZAN_FIELD(zan_log_entry, padding, 38, 2);
ZAN_FIELD(zan_log_entry, cpu, 40, 4);
ZAN_LAYOUT(sizeof(zan_log_entry) == 44);
ZAN_LAYOUT(ZAN_LOG_ENTRIES * sizeof(zan_log_entry) == 2816);

ZAN_LAYOUT(ZAN_NAME_SIZE == 32);
ZAN_LAYOUT(ZAN_HEADER_SIZE == 100);
ZAN_LAYOUT(ZAN_DATA_SIZE == 35000);
ZAN_LAYOUT(ZAN_BODY_SIZE == 35100);
ZAN_LAYOUT(ZAN_PATH_SIZE == 1024);
ZAN_LAYOUT(sizeof(g_module_name) == 32);
