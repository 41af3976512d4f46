// SPDX-License-Identifier: MIT
// The daemon link and the links between modules over local sockets.
#include "ipc/pending.h"
#include "ipc/socket.h"
#include "wire/place.h"
#include "zan.h"

#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int send_timeout_ms = 200;
constexpr char failure[] = "ipc lsocket send failed, %s\n";
constexpr SendPolicy send_to_policy = {failure, Remainder::kept};
constexpr SendPolicy send_policy = {failure, Remainder::dropped};

constexpr int datagram_backlog = 5;
constexpr int server_number = 0;

constinit PendingList pending = {};
// The datagram socket created last, and its file, which is removed with it.
constinit int g_lsocket_fd = -1;
constinit char g_lsocket_file[256] = {};

struct SocketFile {
    char path[256];

    SocketFile(const char *name, int number) {
        zan_sprintf(path, sizeof path, wire::local_socket_format, name, number);
    }

    sockaddr_un address() const {
        sockaddr_un result{};
        result.sun_family = AF_UNIX;
        zan_strcpy(result.sun_path, path, sizeof result.sun_path);
        return result;
    }
};

const sockaddr *generic(const sockaddr_un *address) {
    return reinterpret_cast<const sockaddr *>(address);
}

int refuse(const char *reason) {
    std::printf("ZAN: %s\n", reason);
    return -1;
}

// Replaces the socket's file if no process listens on it.  On failure the socket stays
// open.
int bind_over_stale(int fd, const SocketFile &file) {
    const sockaddr_un address = file.address();
    if (bind(fd, generic(&address), sizeof address) == 0)
        return 0;
    if (connect(fd, generic(&address), sizeof address) == 0)
        return refuse("Second instance already running");
    if (unlink(address.sun_path) != 0)
        return refuse("removing old socket");
    if (bind(fd, generic(&address), sizeof address) != 0)
        return refuse("bind error");
    return 0;
}

int finish(int fd) {
    return set_send_timeout(fd, send_timeout_ms) ? fd : -1;
}

int serve(int fd, const SocketFile &file, int backlog) {
    if (bind_over_stale(fd, file) != 0)
        return -1;
    // A datagram socket cannot listen: the result is ignored, as on every device in the
    // field.
    listen(fd, backlog);
    return finish(fd);
}

int connect_to_daemon(int fd) {
    const sockaddr_un address = SocketFile(ZAN_MODULE_CORE, server_number).address();
    if (connect(fd, generic(&address), sizeof address) != 0) {
        std::printf("Connect to zan local socket fail!!");
        close(fd);
        return -1;
    }
    return finish(fd);
}

int create_datagram_socket(const char *module, int number) {
    if (module == nullptr)
        return -1;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const SocketFile file(module, number);
    std::memcpy(g_lsocket_file, file.path, sizeof g_lsocket_file);
    g_lsocket_fd = fd;
    return serve(fd, file, datagram_backlog);
}

} // namespace
} // namespace zan

using namespace zan;

int zan_lsocket_create(const char *name, int instance) {
    if (name == nullptr)
        return -1;
    init_pending(pending);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    return names_daemon(name) ? serve(fd, SocketFile(name, instance), daemon_backlog)
                              : connect_to_daemon(fd);
}

int zan_lsocket_send(int fd, const void *data, int len) {
    return send_in_order(pending, {fd, nullptr, 0}, data, len, send_policy);
}

int zan_lsocket_send_to(int fd, const void *data, int len, const struct sockaddr_un *to) {
    return send_in_order(pending, {fd, generic(to), sizeof *to}, data, len, send_to_policy);
}

int zan_lsocket_recv(int fd, void *buf, int len) {
    return receive(fd, buf, len, 0);
}

int zan_lsocket_try_recv(int fd, void *buf, int len) {
    return receive(fd, buf, len, MSG_PEEK);
}

int zan_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from) {
    return receive_from(fd, buf, len, reinterpret_cast<sockaddr *>(from), sizeof *from);
}

int zan_lsocket_delete(int fd) {
    discard_pending(pending, fd);
    if (fd == g_lsocket_fd) {
        unlink(g_lsocket_file);
        g_lsocket_file[0] = '\0';
    }
    close(fd);
    return 1;
}

int ipc_lsocket_create_server(const char *module) {
    return create_datagram_socket(module, server_number);
}

int ipc_lsocket_create_client(const char *module) {
    return create_datagram_socket(module, static_cast<int>(getpid()));
}

int ipc_lsocket_recv_from(int fd, void *buf, int len, struct sockaddr_un *from) {
    return zan_lsocket_recv_from(fd, buf, len, from);
}

int ipc_lsocket_get_addr(const char *module, struct sockaddr_un *addr) {
    if (module != nullptr && addr != nullptr)
        *addr = SocketFile(module, server_number).address();
    return 1;
}
