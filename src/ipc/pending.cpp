// SPDX-License-Identifier: MIT
#include "ipc/pending.h"

#include "util/errno_guard.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zan {
namespace {

constexpr int resend_failed = -3;

// A peer that is gone is reported as an error, not by a signal that ends the module.
int transfer(const Destination &to, const void *data, std::size_t size) {
    const ssize_t sent = to.address == nullptr
                             ? send(to.fd, data, size, MSG_NOSIGNAL)
                             : sendto(to.fd, data, size, MSG_NOSIGNAL, to.address, to.address_size);
    return static_cast<int>(sent);
}

enum class Resend { done, incomplete, failed };

Resend resend(PendingRecord *record, const Destination &to) {
    std::printf("get failed packet buffer, start sending...\n");
    const unsigned int remaining = record->size - record->offset;
    const int sent = transfer(to, record->buffer + record->offset, remaining);
    if (sent < 1) {
        const ErrnoGuard error;
        std::printf("resend failed packet ret = %d, %s\n", sent, error.text());
        return Resend::failed;
    }
    if (static_cast<unsigned int>(sent) < remaining) {
        record->offset += static_cast<unsigned int>(sent);
        return Resend::incomplete;
    }
    del_snd_failed_buffer(record);
    std::printf("send failed buffer ret = %d\n", sent);
    return Resend::done;
}

} // namespace

void init_pending(PendingList &list) {
    if (list.g_init)
        return;
    list.g_send_msg_failed.next = &list.g_send_msg_failed;
    list.g_send_msg_failed.prev = &list.g_send_msg_failed;
    list.g_init = true;
}

PendingRecord *get_snd_failed_buffer(PendingList &list, int fd) {
    if (!list.g_init)
        return nullptr;
    for (PendingRecord *record = list.g_send_msg_failed.next; record != &list.g_send_msg_failed;
         record = record->next) {
        if (record->fd == fd)
            return record;
    }
    return nullptr;
}

PendingRecord *set_snd_failed_buffer(PendingList &list, int fd, const void *bytes,
                                     unsigned int size) {
    init_pending(list);
    auto *record = static_cast<PendingRecord *>(std::calloc(1, sizeof(PendingRecord)));
    if (record == nullptr) {
        std::printf("%s - new_failed_msg calloc memory failed\n", "set_snd_failed_buffer");
        return nullptr;
    }
    record->fd = fd;
    record->size = size;
    record->buffer = static_cast<char *>(std::malloc(size));
    if (record->buffer == nullptr) {
        std::printf("%s - new_failed_msg->buffer calloc memory failed\n", "set_snd_failed_buffer");
        std::free(record);
        return nullptr;
    }
    std::memcpy(record->buffer, bytes, size);
    PendingRecord &sentinel = list.g_send_msg_failed;
    record->prev = sentinel.prev;
    record->next = &sentinel;
    sentinel.prev->next = record;
    sentinel.prev = record;
    return record;
}

void del_snd_failed_buffer(PendingRecord *record) {
    record->prev->next = record->next;
    record->next->prev = record->prev;
    std::free(record->buffer);
    std::free(record);
}

void discard_pending(PendingList &list, int fd) {
    PendingRecord *record = get_snd_failed_buffer(list, fd);
    if (record == nullptr)
        return;
    del_snd_failed_buffer(record);
    std::printf("delete failed msg queue\n");
}

int send_in_order(PendingList &list, const Destination &to, const void *data, int len,
                  const SendPolicy &policy) {
    if (PendingRecord *record = get_snd_failed_buffer(list, to.fd); record != nullptr) {
        const Resend outcome = resend(record, to);
        if (outcome != Resend::done)
            return outcome == Resend::incomplete ? 0 : resend_failed;
    }
    int sent = -1;
    if (len < 0)
        errno = EINVAL;
    else
        sent = transfer(to, data, static_cast<std::size_t>(len));
    if (sent < 1) {
        const ErrnoGuard error;
        std::printf(policy.failure, error.text());
    } else if (sent < len && policy.remainder == Remainder::kept) {
        set_snd_failed_buffer(list, to.fd, static_cast<const char *>(data) + sent,
                              static_cast<unsigned int>(len - sent));
        std::printf("ipc socket: buffer maybe full\n");
    }
    return sent;
}

} // namespace zan
