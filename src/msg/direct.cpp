// SPDX-License-Identifier: MIT
// Messages to other modules, over the queue or, for a mesh agent, the daemon link.
#include "msg/answer.h"
#include "msg/identity.h"
#include "msg/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace zan {
namespace {

struct Message {
    int type;
    int cmd;
};
constexpr Message to_one = {ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND};
constexpr Message to_one_with_ack = {ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK};
constexpr Message to_all = {ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL};

bool sendable(const char *module, const void *data, int len) {
    return module != nullptr && len >= 0 && (data != nullptr || len == 0);
}

// Returns the bytes to send.  A long destination name runs over into the source and the
// fields after it, which are therefore set later.
int build(zan_body &body, const Message &message, const char *source, const char *module,
          const void *data, int len) {
    begin_body(body, message.type, message.cmd);
    set_destination(body, module);
    set_source_within_field(body, {source, strnlen(source, sizeof body.src)});
    body.pid = own_pid();
    body.time = static_cast<int32_t>(std::time(nullptr));
    const int copied = std::min<int>(len, ZAN_LONGEST_MESSAGE);
    set_payload(body, static_cast<const char *>(data), static_cast<std::size_t>(copied), copied);
    return ZAN_HEADER_SIZE + copied;
}

enum class Acknowledged { no, yes };

int send_over_queue(const Message &message, const char *module, const void *data, int len,
                    Acknowledged acknowledged) {
    if (!sendable(module, data, len))
        return ZAN_ERR;
    ReceiveRecord record;
    zan_msq_lock();
    record.msg.mtype = g_msq_qid;
    const int size = build(record.msg.body, message, g_module_name, module, data, len);
    int result = zan_msg_send(g_zan_qid, &record.msg, size);
    if (result < 0) {
        std::printf("zan_msq_send send failed\n");
        return result; // the lock stays held
    }
    if (acknowledged == Acknowledged::yes)
        result = await_answer(record, message.type, ZAN_MESSAGE_ACK, nullptr, nullptr);
    zan_msq_unlock();
    return result;
}

int send_over_link(const Message &message, const char *module, const void *data, int len) {
    zan_body body;
    const int size = build(body, message, g_agent_name, module, data, len);
    return zan_ipc_send(g_ipc_handle, &body, size);
}

int await_ack_on_link(const Message &message) {
    return await_stream_answer(message.type, ZAN_MESSAGE_ACK, nullptr, nullptr);
}

} // namespace
} // namespace zan

using namespace zan;

int zan_send(const char *module, const void *data, int len) {
    return send_over_queue(to_one, module, data, len, Acknowledged::no);
}

int zan_send_with_ack(const char *module, const void *data, int len) {
    return send_over_queue(to_one_with_ack, module, data, len, Acknowledged::yes);
}

int zan_send_all(const char *module, const void *data, int len) {
    return send_over_queue(to_all, module, data, len, Acknowledged::yes);
}

int zan_send_agent(const char *module, const void *data, int len) {
    if (!sendable(module, data, len))
        return ZAN_ERR;
    const int sent = send_over_link(to_one_with_ack, module, data, len);
    if (sent > 0)
        return await_ack_on_link(to_one_with_ack);
    std::printf("zan_ipc_send send failed\n");
    return sent;
}

int zan_send_all_agent(const char *module, const void *data, int len) {
    if (!sendable(module, data, len))
        return ZAN_ERR;
    if (send_over_link(to_all, module, data, len) > 0)
        return await_ack_on_link(to_all);
    std::printf("zan_ipc_send send failed! Try zan_send_all ...\n");
    const int result = zan_send_all(module, data, len);
    std::printf("%s\n", result > 0 ? "zan_send_all ok!" : "zan_send_all fail!");
    return result;
}
