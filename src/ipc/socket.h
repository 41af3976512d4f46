// SPDX-License-Identifier: MIT
// What both socket channels do with a socket.
#pragma once

#include <sys/socket.h>

namespace zan {

inline constexpr int daemon_backlog = 65;

// The name under which a create makes the daemon's end of a link, in any case.
bool names_daemon(const char *name);

// Sets SO_SNDTIMEO; false after printing the failure.
bool set_send_timeout(int fd, int milliseconds);

// Receives without waiting for anything but data; the calls' own results.
int receive(int fd, void *buf, int len, int flags);
int receive_from(int fd, void *buf, int len, sockaddr *from, socklen_t from_size);

} // namespace zan
