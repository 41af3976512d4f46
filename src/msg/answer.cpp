// SPDX-License-Identifier: MIT
#include "msg/answer.h"

#include "msg/dispatch.h"
#include "msg/request_record.h"
#include "util/errno_guard.h"
#include "wire/command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pthread.h>

namespace zan {
namespace {

// The text of an answer by reference that outlives its record.
constinit char g_kept_text[ZAN_DATA_SIZE + 1] = {};
constinit pthread_mutex_t g_kept_text_lock = PTHREAD_MUTEX_INITIALIZER;

bool answers_with_text(int type, int cmd) {
    if (type != ZAN_CLASS_CFG)
        return type == ZAN_CLASS_CWMP;
    const auto &cmds = wire::answered_with_text;
    return std::find(cmds.begin(), cmds.end(), cmd) != cmds.end();
}

// Receives until (type, cmd) arrives.  Stores the length of its payload in *len; a record
// without a payload keeps the length of the previous one.
int await_record(ReceiveRecord &record, int type, int cmd, int *len) {
    zan_body &body = record.msg.body;
    begin_record(record.msg, 0, 0, 0);
    record.end_text(0);
    *len = 0;
    do {
        const int received = zan_msg_recv(g_msq_qid, type, &record.msg, ZAN_BODY_SIZE);
        if (received < 0)
            return received;
        if (received > ZAN_HEADER_SIZE) {
            *len = received - ZAN_HEADER_SIZE;
            record.end_text(*len);
        }
    } while (body.cmd != cmd || body.type != type);
    return 1;
}

void copy_answer(const Answer &answer, zan_resp &resp) {
    const auto size = static_cast<std::size_t>(answer.len);
    std::memcpy(resp.data, answer.text, size);
    if (size < sizeof resp.data)
        resp.data[size] = '\0';
    resp.len = answer.len;
}

int await_configuration_answer(int cmd, char *err, zan_resp *resp) {
    return with_request_record([&](ReceiveRecord &record) {
        Answer answer;
        const int result = await_answer(record, ZAN_CLASS_CFG, cmd, err, &answer);
        if (resp != nullptr && answer.text != nullptr) {
            resp->ptr = keep_text(answer);
            resp->len = answer.len;
        }
        return result;
    });
}

int await_other_answer(int type, int cmd, char *err, zan_resp *resp) {
    ReceiveRecord record;
    Answer answer;
    const int result = await_answer(record, type, cmd, err, &answer);
    if (result < 0 || type != ZAN_CLASS_CWMP)
        return result;
    if (resp != nullptr)
        copy_answer(answer, *resp);
    return record.msg.body.arg == 1 ? 0 : 1;
}

// Bytes of a record that `max` lets into the caller's storage, and so all that may be
// written or read there.
int storage_size(int max) {
    return std::clamp<int>(max, 0, ZAN_BODY_SIZE);
}

// How far a record received into a caller's storage is made to read as zeros after
// what it brought: as far as a dispatch, and a handler that trusts `len`, can reach.
int reach_of(zan_body &body, int received, int size) {
    zero_after(body, received, std::min<int>(size, ZAN_HEADER_SIZE));
    if (size < ZAN_HEADER_SIZE)
        return size;
    const int read_by_dispatch = received + static_cast<int>(sizeof(int32_t));
    const int read_by_handler = ZAN_HEADER_SIZE + payload_length(body, size - ZAN_HEADER_SIZE);
    return std::min(std::max(read_by_dispatch, read_by_handler), size);
}

// Whether a handler could read past storage of this size: every handler is handed a
// whole header, and that of class 7 no length.
bool handler_may_overrun(const zan_body &body, int size) {
    return size < ZAN_HEADER_SIZE || (size < ZAN_BODY_SIZE && body.type == ZAN_CLASS_ACTION);
}

// Apart, for its 35 KB of stack.
[[gnu::noinline]] int dispatch_copy(const zan_body &received_body, int received) {
    zan_body body = {};
    std::memcpy(static_cast<void *>(&body), &received_body, static_cast<std::size_t>(received));
    return dispatch(body, ZAN_DATA_SIZE);
}

int report_receive_error(const char *format, const char *function) {
    const ErrnoGuard error;
    std::printf(format, function, g_msq_qid, error.text());
    return 0;
}

// They differ in a space.
constexpr char client_receive_error[] = "%s: receive msq message error, msgid: %d. Error:%s\n";
constexpr char poll_receive_error[] = "%s:receive msq message error, msgid: %d. Error:%s\n";

int dispatch_from_own(zan_msg &msg, int received) {
    zero_after(msg.body, received, ZAN_BODY_SIZE);
    return dispatch(msg.body, ZAN_DATA_SIZE);
}

int dispatch_from_callers(zan_msg &msg, int received, int max) {
    const int size = storage_size(max);
    zan_body &body = msg.body;
    zero_after(body, received, reach_of(body, received, size));
    return handler_may_overrun(body, size) ? dispatch_copy(body, received)
                                           : dispatch(body, size - ZAN_HEADER_SIZE);
}

// `dispatch` is called with the bytes received.
template<typename Dispatch>
int take_waiting(zan_msg *msg, int msgtyp, int max, const Dispatch &dispatch) {
    if (g_msq_qid < 0)
        return -1;
    const int received = zan_msg_recv_no_wait(g_msq_qid, msgtyp, msg, max);
    if (received < 0)
        return errno == ENOMSG
                   ? 0
                   : report_receive_error(client_receive_error, "zan_client_recv_msq_no_wait");
    return dispatch(received);
}

template<typename Dispatch>
int take_next(zan_msg *msg, int msgtyp, int max, const Dispatch &dispatch) {
    if (g_msq_qid < 0)
        return -1;
    const int received = zan_msg_recv(g_msq_qid, msgtyp, msg, max);
    if (received < 0)
        return errno == EINTR ? 0
                              : report_receive_error(client_receive_error, "zan_client_recv_msq2");
    return dispatch(received);
}

} // namespace

char *keep_text(const Answer &answer) {
    const auto size = static_cast<std::size_t>(answer.len) + 1;
    pthread_mutex_lock(&g_kept_text_lock);
    std::memcpy(g_kept_text, answer.text, size);
    pthread_mutex_unlock(&g_kept_text_lock);
    return g_kept_text;
}

int await_answer(ReceiveRecord &record, int type, int cmd, char *err, Answer *answer) {
    int len = 0;
    const int received = await_record(record, type, cmd, &len);
    if (received < 0)
        return received;
    zan_body &body = record.msg.body;
    if (body.result < 0) {
        zan_strcpy(err, body.data, 0);
        return body.result;
    }
    if (answer != nullptr && answers_with_text(type, cmd))
        *answer = {body.data, len};
    return 1;
}

int dispatch_pending(const char *function, int msgtyp, Enomsg enomsg) {
    zan_msg msg;
    const int result = take_waiting(&msg, msgtyp, ZAN_BODY_SIZE,
                                    [&](int received) { return dispatch_from_own(msg, received); });
    if (result < 0 && (errno != ENOMSG || enomsg == Enomsg::printed))
        report_receive_error(poll_receive_error, function);
    return result;
}

int dispatch_next() {
    zan_msg msg;
    return take_next(&msg, 0, ZAN_BODY_SIZE,
                     [&](int received) { return dispatch_from_own(msg, received); });
}

} // namespace zan

using namespace zan;

int zan_client_recv_msq_response(int type, int cmd, char *err, zan_resp *resp) {
    return type == ZAN_CLASS_CFG ? await_configuration_answer(cmd, err, resp)
                                 : await_other_answer(type, cmd, err, resp);
}

int zan_client_recv_reg_msq(int qid, char *err) {
    ReceiveRecord record;
    zan_body &body = record.msg.body;
    begin_record(record.msg, 0, 0, 0);
    record.end_text(0);
    const int received = zan_msg_recv(g_reg_msq_qid, qid, &record.msg, ZAN_BODY_SIZE);
    if (received < 0)
        return received;
    if (received > ZAN_HEADER_SIZE)
        record.end_text(received - ZAN_HEADER_SIZE);
    if (body.result < 0)
        zan_strcpy(err, body.data, 0);
    return body.result;
}

int zan_client_recv_msq_no_wait(zan_msg *msg, int msgtyp, int max) {
    return take_waiting(msg, msgtyp, max,
                        [=](int received) { return dispatch_from_callers(*msg, received, max); });
}

int zan_client_recv_msq2(zan_msg *msg, int msgtyp, int max) {
    return take_next(msg, msgtyp, max,
                     [=](int received) { return dispatch_from_callers(*msg, received, max); });
}

int zan_recv_msq(void) {
    return dispatch_pending("zan_recv_msq", ZAN_CLASS_MESSAGE);
}

int zan_recv_notify_msq(void) {
    return dispatch_pending("zan_recv_notify_msq", ZAN_CLASS_NOTIFY);
}
