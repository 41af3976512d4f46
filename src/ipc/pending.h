// SPDX-License-Identifier: MIT
// What a stream socket did not take: the rest of a message, kept until the next
// send on the same socket.
#pragma once

#include <sys/socket.h>

namespace zan {

struct PendingRecord {
    PendingRecord *next;
    PendingRecord *prev;
    int fd;
    unsigned int size;
    unsigned int offset; // of `size`, how many have been sent since
    char *buffer;
};

// A circular list with a sentinel.  Each channel has one of its own; the list is
// linked to itself by the channel's first create and not protected by a lock.
struct PendingList {
    PendingRecord g_send_msg_failed;
    bool g_init;
};

void init_pending(PendingList &list);

// The oldest record of the socket, or null.
PendingRecord *get_snd_failed_buffer(PendingList &list, int fd);

// Keeps a copy of the bytes at the end of the list; null after a message when
// memory runs out.
PendingRecord *set_snd_failed_buffer(PendingList &list, int fd, const void *bytes,
                                     unsigned int size);

void del_snd_failed_buffer(PendingRecord *record);

// Forgets what is kept for a socket that is about to be closed, saying so.
void discard_pending(PendingList &list, int fd);

// How a send treats a message of which only part went.
enum class Remainder { kept, dropped };

struct SendPolicy {
    const char *failure; // line with the error text, for a message that fails wholly
    Remainder remainder;
};

// Where bytes go: the socket's peer when the address is null.
struct Destination {
    int fd;
    const sockaddr *address;
    socklen_t address_size;
};

// Finishes what is kept for the socket, then sends the message: the bytes of it
// that went, 0 when the rest of the earlier message did not all go (this message
// is dropped then), -3 when nothing of it went.
int send_in_order(PendingList &list, const Destination &to, const void *data, int len,
                  const SendPolicy &policy);

} // namespace zan
