// SPDX-License-Identifier: MIT
// Operations that both socket channels share.
#pragma once

#include <sys/socket.h>

namespace zan {

inline constexpr int daemon_backlog = 65;

// Whether a create with this name makes the daemon's end of a link; case is ignored.
bool names_daemon(const char *name);

// Sets SO_SNDTIMEO; false after printing the failure.
bool set_send_timeout(int fd, int milliseconds);

// recv() and recvfrom(), which refuse a negative length with EINVAL.
int receive(int fd, void *buf, int len, int flags);
int receive_from(int fd, void *buf, int len, sockaddr *from, socklen_t from_size);

} // namespace zan
