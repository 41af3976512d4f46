// SPDX-License-Identifier: MIT
#include "msg/dispatch.h"

#include "wire/value_change.h"
#include "wire/word.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace zan {
namespace {

struct Handlers {
    zan_value_changed_fn value_changed;
    zan_value_changed2_fn value_changed2;
    zan_event_fn event;
    zan_message_fn message;
    zan_taskmgr_fn taskmgr;
};
constinit Handlers g_zan_api_callback = {};

// Bounded by the field, with a terminator.
template<std::size_t Size> void copy_cut(char (&field)[Size], std::string_view text) {
    const std::size_t length = std::min(text.size(), Size - 1);
    std::copy_n(text.data(), length, field); // an empty text may be a null pointer
    field[length] = '\0';
}

// The arguments of a value-changed handler, by position.  A handler may write into its
// texts, so each has its own.
struct ValueChange {
    char f1[wire::max_changed_source + 1];
    char f2[wire::max_changed_path + 1];
    char f3[wire::max_changed_value + 1];
    char f6[wire::max_changed_subscription + 1];
    int f4;
    int f5;

    ValueChange(const zan_body &body, int room) {
        const wire::ValueChange change = wire::parse_value_change(
            {body.data, strnlen(body.data, static_cast<std::size_t>(room))});
        copy_cut(f1, change.source);
        copy_cut(f2, change.path);
        copy_cut(f3, change.value);
        copy_cut(f6, change.subscribed);
        f4 = change.kind;
        f5 = change.option;
    }
};

int dispatch_value_changed(const zan_body &body, int room) {
    int handled = 0;
    if (const auto handler = g_zan_api_callback.value_changed; handler != nullptr) {
        ValueChange change(body, room);
        handler(change.f1, change.f2, change.f3, change.f6, change.f4);
        handled = 1;
    }
    // Read only now: the first handler may have set or removed the second.
    if (const auto handler = g_zan_api_callback.value_changed2; handler != nullptr) {
        ValueChange change(body, room);
        handler(change.f1, change.f2, change.f3, change.f6, change.f4, change.f5);
        handled = 1;
    }
    return handled;
}

int dispatch_event(const zan_body &body, int room) {
    if (g_zan_api_callback.event == nullptr)
        return 0;
    const int code = wire::load_word({body.data, static_cast<std::size_t>(room)});
    g_zan_api_callback.event(code, body.type);
    return 1;
}

int dispatch_notification(const zan_body &body, int room) {
    switch (body.cmd) {
    case ZAN_NOTIFY_VALUE_CHANGED:
        return dispatch_value_changed(body, room);
    case ZAN_NOTIFY_EVENT:
        return dispatch_event(body, room);
    default:
        return 0;
    }
}

int dispatch_message(zan_body &body, int room) {
    if (g_zan_api_callback.message == nullptr)
        return 0;
    g_zan_api_callback.message(body.data, payload_length(body, room), &body);
    return 1;
}

// Without 1, the report of an event, and 9, the restart: no device in the field passes
// them on.
constexpr bool is_task_manager_command(int cmd) {
    return (cmd >= 2 && cmd <= 8) || (cmd >= 10 && cmd <= 17);
}

int dispatch_task_manager(zan_body &body) {
    if (g_zan_api_callback.taskmgr == nullptr || !is_task_manager_command(body.cmd))
        return 0;
    g_zan_api_callback.taskmgr(body.data, body.type);
    return 1;
}

} // namespace

int payload_length(const zan_body &body, int room) {
    return std::clamp<int>(body.len, 0, room);
}

int dispatch(zan_body &body, int room) {
    switch (body.type) {
    case ZAN_CLASS_CFG:
    case ZAN_CLASS_CONTROL:
        return 0;
    case ZAN_CLASS_MESSAGE:
    case ZAN_CLASS_BROADCAST:
        return dispatch_message(body, room);
    case ZAN_CLASS_NOTIFY:
        return dispatch_notification(body, room);
    case ZAN_CLASS_ACTION:
        return dispatch_task_manager(body);
    default:
        std::printf("receive unknown module message[%d]\n", body.type);
        return 0;
    }
}

} // namespace zan

using namespace zan;

void zan_set_value_changed_handler(zan_value_changed_fn fn) {
    g_zan_api_callback.value_changed = fn;
}

void zan_set_value_changed_handler2(zan_value_changed2_fn fn) {
    g_zan_api_callback.value_changed2 = fn;
}

void zan_set_event_handler(zan_event_fn fn) {
    g_zan_api_callback.event = fn;
}

void zan_set_message_handler(zan_message_fn fn) {
    g_zan_api_callback.message = fn;
}

void zan_set_taskmgr_msg_handler(zan_taskmgr_fn fn) {
    g_zan_api_callback.taskmgr = fn;
}

int zan_process_data(zan_body *body) {
    return body != nullptr ? dispatch(*body, ZAN_DATA_SIZE) : 0;
}
