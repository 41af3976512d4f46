// SPDX-License-Identifier: MIT
#include "util/errno_guard.h"
#include "util/pause.h"
#include "zan.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int queue_mode = 0777;
constexpr int interrupted_pause_us = 1000;

struct KeyFile {
    char path[64];

    KeyFile(const char *name, int instance) {
        zan_sprintf(path, sizeof path, ZAN_KEY_FILE, name, instance);
    }
};

int fail(const char *function) {
    const ErrnoGuard error;
    std::printf("%s ERROR:%s\n", function, error.text());
    return -1;
}

int open_queue(const char *function, const char *name, int instance, int proj_id, int flags) {
    if (name == nullptr)
        return -1;
    const KeyFile key_file(name, instance);
    if (zan_file_exists(key_file.path) == 0)
        create_file(key_file.path);
    const key_t key = ftok(key_file.path, proj_id);
    if (key == -1)
        return fail(function);
    const int qid = msgget(key, flags | queue_mode);
    return qid >= 0 ? qid : fail(function);
}

// A zan_msg holds one record, whatever the caller says.
std::size_t receive_size(int max) {
    return static_cast<std::size_t>(std::min<int>(max, ZAN_BODY_SIZE));
}

} // namespace
} // namespace zan

using namespace zan;

int create_file(const char *path) {
    FILE *file = path != nullptr ? std::fopen(path, "w") : nullptr;
    if (file == nullptr) {
        std::printf("open %s fail!\n", path != nullptr ? path : "(null)");
        return 1;
    }
    std::fclose(file);
    return 0;
}

int zan_msg_create(const char *name, int instance) {
    return open_queue("zan_msg_create", name, instance, 0, IPC_CREAT);
}

int zan_msg_create_by_id(const char *name, int instance, int proj_id) {
    return open_queue("zan_msg_create_by_id", name, instance, proj_id, IPC_CREAT | IPC_EXCL);
}

int zan_del_msq_file(const char *name, int instance) {
    if (name == nullptr)
        return -1;
    return unlink(KeyFile(name, instance).path);
}

int zan_msg_del(int qid) {
    if (qid < 0)
        return -1;
    return msgctl(qid, IPC_RMID, nullptr) == 0 ? 0 : fail("zan_msg_del");
}

int zan_msg_send(int qid, const zan_msg *msg, int msgsz) {
    if (qid < 0)
        return -1;
    int result = -1;
    if (msgsz < 0 || msgsz > ZAN_BODY_SIZE)
        errno = EINVAL;
    else
        result = msgsnd(qid, msg, static_cast<std::size_t>(msgsz), 0);
    if (result < 0) {
        const ErrnoGuard error;
        std::printf("zan_msg_send qid=%d ERROR:%s\n", qid, error.text());
    }
    return result;
}

int zan_msg_recv(int qid, int msgtyp, zan_msg *msg, int max) {
    if (qid < 0)
        return -1;
    ssize_t received = msgrcv(qid, msg, receive_size(max), msgtyp, 0);
    if (received >= 0)
        return static_cast<int>(received);
    if (errno != EINTR) {
        const ErrnoGuard error;
        std::printf("zan_msg_recv qid=%d ERROR:%s\n", qid, error.text());
        return -1;
    }
    // One retry only, so that a module that gets signals continuously returns.
    std::printf("EINTR[%d]:retry...\n", qid);
    pause_for_us(interrupted_pause_us);
    received = msgrcv(qid, msg, receive_size(max), msgtyp, 0);
    if (received < 0) {
        const ErrnoGuard error;
        std::printf("Retry fail[%s] qid=%d ERROR:%s\n", "zan_msg_recv", qid, error.text());
    }
    return static_cast<int>(received);
}

int zan_msg_recv_no_wait(int qid, int msgtyp, zan_msg *msg, int max) {
    if (qid < 0)
        return -1;
    const ssize_t received = msgrcv(qid, msg, receive_size(max), msgtyp, IPC_NOWAIT);
    if (received < 0 && errno != EINTR && errno != ENOMSG) {
        const ErrnoGuard error;
        std::printf("zan_msg_recv_no_wait msqid=%d ERROR:%s\n", qid, error.text());
    }
    return static_cast<int>(received);
}
