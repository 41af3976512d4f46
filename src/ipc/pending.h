// SPDX-License-Identifier: MIT
// The rest of a message that a stream socket did not take, kept until the next send on
// the same socket.
#pragma once

#include <sys/socket.h>

namespace zan {

struct PendingRecord {
    PendingRecord *next;
    PendingRecord *prev;
    int fd;
    unsigned int size;
    unsigned int offset; // bytes of `size` that have been sent since
    char *buffer;
};

// A circular list with a sentinel, one for each channel.  The channel's first create
// links it to itself; no lock protects it.
struct PendingList {
    PendingRecord g_send_msg_failed;
    bool g_init;
};

void init_pending(PendingList &list);

// The oldest record of the socket, or null.
PendingRecord *get_snd_failed_buffer(PendingList &list, int fd);

// Appends a copy of the bytes to the list.  Returns null after printing a message if
// memory runs out.
PendingRecord *set_snd_failed_buffer(PendingList &list, int fd, const void *bytes,
                                     unsigned int size);

void del_snd_failed_buffer(PendingRecord *record);

// Discards what is kept for a socket that is about to be closed, and prints that.
void discard_pending(PendingList &list, int fd);

// What a send does with the rest of a message that was sent in part.
enum class Remainder { kept, dropped };

struct SendPolicy {
    const char *failure; // format of the line for a message of which nothing was sent
    Remainder remainder;
};

// A null address is the socket's peer.
struct Destination {
    int fd;
    const sockaddr *address;
    socklen_t address_size;
};

// Sends what is kept for the socket, then the message.  Returns the bytes of the message
// that were sent; 0 if the kept bytes were sent in part, -3 if none of them was, and the
// message is dropped.
int send_in_order(PendingList &list, const Destination &to, const void *data, int len,
                  const SendPolicy &policy);

} // namespace zan
