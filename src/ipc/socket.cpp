// SPDX-License-Identifier: MIT
#include "ipc/socket.h"

#include "zan.h"

#include <cerrno>
#include <cstdio>
#include <strings.h>
#include <sys/time.h>

namespace zan {

bool names_daemon(const char *name) {
    return name != nullptr && strcasecmp(name, ZAN_MODULE_CORE) == 0;
}

bool set_send_timeout(int fd, int milliseconds) {
    timeval timeout{};
    timeout.tv_sec = milliseconds / 1000;
    timeout.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) == 0)
        return true;
    std::printf("socket ipc: set socket send timout failed\n");
    return false;
}

int receive(int fd, void *buf, int len, int flags) {
    if (len < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(recv(fd, buf, static_cast<std::size_t>(len), flags));
}

int receive_from(int fd, void *buf, int len, sockaddr *from, socklen_t from_size) {
    if (len < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(recvfrom(fd, buf, static_cast<std::size_t>(len), 0, from,
                                     from != nullptr ? &from_size : nullptr));
}

} // namespace zan
