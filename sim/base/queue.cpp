// SPDX-License-Identifier: MIT
#include "base/queue.h"

#include <zan.h>

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <cstring>

namespace zan::sim {

namespace {

// A message for msgsnd() and msgrcv(), one byte longer than any valid record.
struct Buffer {
    long mtype;
    char body[ZAN_BODY_SIZE + 1];
};

Buffer &buffer() {
    // Not cleared between records: clearing 35 KB costs more than sending.
    static thread_local Buffer storage;
    return storage;
}

Sent failure(int id, std::size_t size) {
    switch (errno) {
    case EAGAIN: {
        // A record larger than the queue would never fit.
        const auto state = queue_state(id);
        return state && size > state->capacity ? Sent::too_long : Sent::full;
    }
    case EINVAL:
        return queue_exists(id) ? Sent::too_long : Sent::gone;
    case EIDRM:
        return Sent::gone;
    case ENOMEM:
        return Sent::full;
    default:
        return Sent::refused;
    }
}

} // namespace

int create_queue() {
    return msgget(IPC_PRIVATE, IPC_CREAT | 0666);
}

bool remove_queue(int id) {
    return msgctl(id, IPC_RMID, nullptr) == 0;
}

std::optional<QueueState> queue_state(int id) {
    msqid_ds state{};
    if (msgctl(id, IPC_STAT, &state) != 0)
        return std::nullopt;
    return QueueState{.records = static_cast<std::size_t>(state.msg_qnum),
                      .used = static_cast<std::size_t>(state.__msg_cbytes),
                      .capacity = static_cast<std::size_t>(state.msg_qbytes),
                      .last_sender = state.msg_lspid,
                      .last_receiver = state.msg_lrpid};
}

bool queue_exists(int id) {
    return queue_state(id).has_value() || (errno != EINVAL && errno != EIDRM);
}

Sent send_now(int id, long mtype, std::string_view body) {
    Buffer &out = buffer();
    out.mtype = mtype;
    body.copy(out.body, sizeof out.body);
    int result = 0;
    do
        result = msgsnd(id, &out, body.size(), IPC_NOWAIT);
    while (result != 0 && errno == EINTR);
    return result == 0 ? Sent::yes : failure(id, body.size());
}

bool receive(int id, Packet &packet) {
    Buffer &in = buffer();
    ssize_t size = 0;
    do
        size = msgrcv(id, &in, sizeof in.body, 0, MSG_NOERROR);
    while (size < 0 && errno == EINTR);
    if (size < 0)
        return false;
    packet.mtype = in.mtype;
    packet.body.assign(in.body, static_cast<std::size_t>(size));
    return true;
}

bool remove_record(int id, long mtype) {
    return msgrcv(id, &buffer(), sizeof Buffer::body, mtype, IPC_NOWAIT | MSG_NOERROR) >= 0;
}

} // namespace zan::sim
