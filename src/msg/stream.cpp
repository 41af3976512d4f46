// SPDX-License-Identifier: MIT
#include "msg/stream.h"

#include "msg/dispatch.h"
#include "msg/identity.h"
#include "util/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <poll.h>
#include <utility>

namespace zan {
namespace {

constexpr int first_buffer_size = 1124;
constexpr int64_t refused_total = int64_t{2} * 1024 * 1024;
constexpr int slow_answer_timeout_ms = 50'000;
constexpr int answer_timeout_ms = 60'000;

// ---- Reassembly ------------------------------------------------------------

// Grows with the largest record and is never freed.  One byte more than the usable size
// is allocated, for the terminator after a payload.
constinit char *g_recv_buffer = nullptr;
constinit int g_recv_buffer_size = 0;
constinit int g_recv_pos = 0; // bytes held of the current record
constinit int g_data_len = 0; // its `len`; reset by whoever consumes the record

zan_body &received_body() {
    return *reinterpret_cast<zan_body *>(g_recv_buffer);
}

// The peer chose `len`: the payload is limited to the buffer.
int payload_held() {
    return std::clamp(g_data_len, 0, g_recv_buffer_size - ZAN_HEADER_SIZE);
}

bool allocate_buffer() {
    if (g_recv_buffer != nullptr)
        return true;
    g_recv_buffer = static_cast<char *>(std::calloc(1, first_buffer_size + 1));
    g_recv_buffer_size = g_recv_buffer != nullptr ? first_buffer_size : 0;
    if (g_recv_buffer == nullptr)
        std::printf("zan_api_recv_data calloc memory failed\n");
    return g_recv_buffer != nullptr;
}

bool grow_buffer(int total) {
    if (total <= g_recv_buffer_size)
        return true;
    auto *larger =
        static_cast<char *>(std::realloc(g_recv_buffer, static_cast<std::size_t>(total) + 1));
    if (larger == nullptr) {
        std::free(g_recv_buffer);
        g_recv_buffer = nullptr;
        g_recv_buffer_size = 0;
        std::printf("zan_api_recv_data realloc memory failed\n");
        return false;
    }
    g_recv_buffer = larger;
    g_recv_buffer_size = total;
    return true;
}

// The header first; then, its `len` known, the payload.
int bytes_wanted() {
    const int64_t payload = g_recv_pos < ZAN_HEADER_SIZE ? 0 : g_data_len;
    const int64_t end = ZAN_HEADER_SIZE + payload;
    return static_cast<int>(std::clamp<int64_t>(end, g_recv_pos, g_recv_buffer_size)) - g_recv_pos;
}

int nothing_read() {
    if (errno != EAGAIN && errno != EINTR)
        return -1;
    errno = 0;
    return 0;
}

// ---- Records set aside -----------------------------------------------------

// A record that arrived while an answer was awaited.
struct SetAside {
    SetAside *next;
    HeapText record;
    int size;
};
constinit SetAside *g_msg_queue = nullptr;
constinit SetAside **g_msg_queue_end = &g_msg_queue;

// A copy of the received record with a NUL after it; null if memory runs out.
HeapText copy_received(int payload) {
    const auto size = ZAN_HEADER_SIZE + static_cast<std::size_t>(payload);
    HeapText copy(static_cast<char *>(std::malloc(size + 1)));
    if (copy != nullptr) {
        std::memcpy(copy.get(), g_recv_buffer, size);
        copy.get()[size] = '\0';
    }
    return copy;
}

void dispatch_copy(const HeapText &copy, int payload) {
    if (copy != nullptr)
        dispatch(*reinterpret_cast<zan_body *>(copy.get()), payload);
}

void set_aside(int payload) {
    HeapText copy = copy_received(payload);
    void *memory = copy != nullptr ? std::calloc(1, sizeof(SetAside)) : nullptr;
    if (memory == nullptr)
        return;
    *g_msg_queue_end = ::new (memory) SetAside{nullptr, std::move(copy), payload};
    g_msg_queue_end = &(*g_msg_queue_end)->next;
}

SetAside *take_first() {
    SetAside *node = g_msg_queue;
    g_msg_queue = node->next;
    if (g_msg_queue == nullptr)
        g_msg_queue_end = &g_msg_queue;
    return node;
}

// Dispatches the records set aside; false if there were none.
bool deliver_set_aside() {
    const bool any = g_msg_queue != nullptr;
    while (g_msg_queue != nullptr) {
        SetAside *node = take_first();
        dispatch_copy(node->record, node->size);
        node->~SetAside();
        std::free(node);
    }
    return any;
}

// ---- The wait for an answer ------------------------------------------------

int timeout_for(int type, int cmd) {
    const bool slow = type == ZAN_CLASS_CFG &&
                      (cmd == ZAN_CFG_DUMP || cmd == ZAN_CFG_PRINT || cmd == ZAN_CFG_CONVERT);
    return slow ? slow_answer_timeout_ms : answer_timeout_ms;
}

bool wait_readable(int timeout_ms) {
    if (g_ipc_handle < 0)
        return false;
    pollfd ready = {g_ipc_handle, POLLIN, 0};
    return poll(&ready, 1, timeout_ms) > 0 && (ready.revents & POLLNVAL) == 0;
}

int await_record(int type, int cmd, char *err, Answer *answer) {
    for (;;) {
        if (!wait_readable(timeout_for(type, cmd)))
            return ZAN_ERR_TIMEOUT;
        const int state = zan_api_recv_data(g_ipc_handle);
        if (state < 0)
            return state;
        if (state == 0)
            continue;
        const int payload = payload_held();
        g_data_len = 0;
        const zan_body &body = received_body();
        if (body.type != type || body.cmd != cmd) {
            // Late answers to configuration requests are useless, and so is the record that
            // only wakes the module.
            if (body.type != ZAN_CLASS_CFG && body.cmd != ZAN_CFG_EMPTY)
                set_aside(payload);
            continue;
        }
        if (body.result < 0) {
            zan_strcpy(err, body.data, 0);
            return body.result;
        }
        if (answer != nullptr && type == ZAN_CLASS_CFG && cmd == ZAN_CFG_GET)
            *answer = {g_recv_buffer + ZAN_HEADER_SIZE, payload};
        return 1;
    }
}

} // namespace

void restart_stream() {
    g_recv_pos = 0;
    g_data_len = 0;
}

int await_stream_answer(int type, int cmd, char *err, Answer *answer) {
    const int result = await_record(type, cmd, err, answer);
    const bool agent_leaves = type == ZAN_CLASS_REGISTRATION && cmd == ZAN_UNREGISTER;
    // Perhaps nothing more arrives that would make the module poll: request a record that
    // does.
    if (!agent_leaves && g_msg_queue != nullptr && zan_request_empty_message() <= 0)
        zan_request_empty_message();
    return result;
}

} // namespace zan

using namespace zan;

int zan_api_recv_data(int fd) {
    if (!allocate_buffer())
        return -1;
    const bool from_start = g_recv_pos == 0;
    const int received = zan_ipc_recv(fd, g_recv_buffer + g_recv_pos, bytes_wanted());
    if (received <= 0)
        return nothing_read();
    g_recv_pos += received;
    if (g_recv_pos >= ZAN_HEADER_SIZE) {
        // A header that came in pieces is not converted.
        if (from_start)
            convert_byte_order(received_body());
        g_data_len = received_body().len;
        const int64_t total = int64_t{ZAN_HEADER_SIZE} + g_data_len;
        if (total >= refused_total || !grow_buffer(static_cast<int>(total)))
            return -1;
    }
    if (g_data_len != 0 && g_recv_pos < int64_t{ZAN_HEADER_SIZE} + g_data_len)
        return 0;
    g_recv_pos = 0;
    g_recv_buffer[ZAN_HEADER_SIZE + payload_held()] = '\0';
    return 1;
}

int zan_client_recv_response(int type, int cmd, char *err, zan_resp *resp) {
    Answer answer;
    const int result = await_stream_answer(type, cmd, err, &answer);
    if (resp != nullptr && answer.text != nullptr) {
        resp->ptr = answer.text;
        resp->len = answer.len;
    }
    return result;
}

int zan_client_recv(int fd, char *buf, int size) {
    if (deliver_set_aside())
        return 0;
    const int state = zan_api_recv_data(fd);
    if (state != 1)
        return state;
    const int payload = payload_held();
    g_data_len = 0;
    dispatch_copy(copy_received(payload), payload);
    if (buf == nullptr || size < 1)
        return 1;
    const int copied = std::min(size, payload);
    std::memcpy(buf, g_recv_buffer, static_cast<std::size_t>(copied));
    return copied;
}

int zan_request_empty_message(void) {
    zan_body body;
    begin_body(body, ZAN_CLASS_CFG, ZAN_CFG_EMPTY);
    set_destination(body, ZAN_MODULE_CFG);
    set_source_to_self(body);
    body.pid = own_pid();
    const int sent = zan_ipc_send(g_ipc_handle, &body, ZAN_HEADER_SIZE);
    if (sent > 0)
        return sent;
    std::printf("zan_request_empty_message failed\n");
    return 0;
}
