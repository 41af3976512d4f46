// SPDX-License-Identifier: MIT
// The daemon link over TCP and the links between modules over UDP.
#include "ipc/pending.h"
#include "ipc/socket.h"
#include "util/errno_guard.h"
#include "util/number.h"
#include "util/pause.h"
#include "wire/place.h"
#include "zan.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int send_timeout_ms = 300;
constexpr int receive_timeout_s = 3;
constexpr SendPolicy send_policy = {"ipc socket send failed, %s\n", Remainder::kept};

constexpr std::size_t address_text_size = 32;
constexpr int connect_attempts = 5;
constexpr int connect_pause_us = 100'000;
constexpr std::size_t first_line_size = 256;

constinit PendingList pending = {};
constinit int g_zan_port = wire::first_daemon_port;
constinit int g_ipc_port = wire::first_module_port;

// A file under /tmp with the port or address of a socket.
struct AddressFile {
    char path[256];

    AddressFile(const char *format, const char *name) {
        zan_sprintf(path, sizeof path, format, name);
    }

    int write(int port) const {
        FILE *file = std::fopen(path, "w+");
        const bool written =
            file != nullptr && std::fprintf(file, "%d\n", port) > 0 && std::fflush(file) == 0;
        if (file != nullptr)
            std::fclose(file);
        if (!written)
            std::printf("zan: write socket port file failed\n");
        return written ? 1 : 0;
    }

    // False if there is no such file; an empty one gives an empty line.
    bool read_line(char (&line)[first_line_size]) const {
        line[0] = '\0';
        FILE *file = std::fopen(path, "r");
        if (file == nullptr)
            return false;
        if (std::fgets(line, sizeof line, file) == nullptr)
            line[0] = '\0';
        std::fclose(file);
        return true;
    }

    int read_port(int missing) const {
        char line[first_line_size];
        return read_line(line) ? to_int(line) : missing;
    }
};

AddressFile daemon_port_file() {
    return AddressFile("%s", wire::port_file);
}
AddressFile daemon_address_file() {
    return AddressFile("%s", wire::address_file);
}
AddressFile module_port_file(const char *module) {
    return AddressFile(wire::module_port_format, module);
}

sockaddr_in address_of(in_addr_t host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = host;
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

const sockaddr *generic(const sockaddr_in *address) {
    return reinterpret_cast<const sockaddr *>(address);
}

// Binds to the first free port from *port upward and stores it there.  False if none is
// free; *port stays, because ports may be free again at the next search.
bool bind_upward(int fd, in_addr_t host, int *port) {
    for (int candidate = *port; candidate <= wire::last_port; ++candidate) {
        const sockaddr_in address = address_of(host, candidate);
        if (bind(fd, generic(&address), sizeof address) == 0) {
            *port = candidate;
            return true;
        }
    }
    return false;
}

// Only after bind(), as on every device in the field: before it, two UDP servers would
// share a port, and the second must take the next one.
void reuse_address(int fd) {
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

int close_unusable(int fd) {
    close(fd);
    return -1;
}

int create_daemon_end() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (!bind_upward(fd, htonl(INADDR_ANY), &g_zan_port))
        return close_unusable(fd);
    listen(fd, daemon_backlog);
    reuse_address(fd);
    if (zan_socket_write_port_file(g_zan_port) == 0)
        return close_unusable(fd);
    return set_send_timeout(fd, send_timeout_ms) ? fd : -1;
}

sockaddr_in daemon_address() {
    char text[address_text_size] = {};
    zan_get_socket_ip(text);
    // Before it is trimmed: a line of spaces is an address that cannot be reached.
    if (text[0] == '\0')
        std::memcpy(text, wire::default_daemon_address, sizeof wire::default_daemon_address);
    zan_trimr(text);
    in_addr host{};
    if (inet_aton(text, &host) == 0)
        host.s_addr = INADDR_NONE;
    return address_of(host.s_addr, g_zan_port);
}

bool connect_patiently(int fd, const sockaddr_in &address) {
    for (int attempt = 1; attempt <= connect_attempts; ++attempt) {
        if (connect(fd, generic(&address), sizeof address) == 0)
            return true;
        if (attempt < connect_attempts)
            pause_for_us(connect_pause_us);
    }
    return false;
}

int create_module_end() {
    g_zan_port = zan_get_socket_port();
    if (g_zan_port <= 0) {
        std::printf("zan: can not get zan port\n");
        return -1;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    fcntl(fd, F_SETFL, O_NONBLOCK);
    if (!connect_patiently(fd, daemon_address())) {
        std::printf("zan: can not connect to zan, port=%d\n", g_zan_port);
        return close_unusable(fd);
    }
    return set_send_timeout(fd, send_timeout_ms) ? fd : -1;
}

} // namespace
} // namespace zan

using namespace zan;

int zan_socket_write_port_file(int port) {
    return daemon_port_file().write(port);
}

int zan_get_socket_port(void) {
    return daemon_port_file().read_port(wire::first_daemon_port);
}

void zan_get_socket_ip(char *out) {
    char line[first_line_size];
    if (daemon_address_file().read_line(line) && line[0] != '\0')
        zan_strcpy(out, line, address_text_size);
}

int ipc_socket_write_port_file(const char *module, int port) {
    return module != nullptr ? module_port_file(module).write(port) : 0;
}

int ipc_get_socket_port(const char *module) {
    return module != nullptr ? module_port_file(module).read_port(0) : 0;
}

int ipc_socket_get_addr(const char *module, struct sockaddr_in *addr) {
    if (addr == nullptr)
        return 0;
    *addr = address_of(htonl(INADDR_LOOPBACK), ipc_get_socket_port(module));
    return addr->sin_port;
}

int ipc_socket_create_server(const char *module) {
    if (module == nullptr)
        return -1;
    const int fd = ipc_socket_create_client();
    if (fd < 0)
        return -1;
    if (!bind_upward(fd, htonl(INADDR_LOOPBACK), &g_ipc_port))
        return close_unusable(fd);
    reuse_address(fd);
    return ipc_socket_write_port_file(module, g_ipc_port) != 0 ? fd : close_unusable(fd);
}

int ipc_socket_create_client(void) {
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

int ipc_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from) {
    return receive_from(fd, buf, len, reinterpret_cast<sockaddr *>(from), sizeof *from);
}

int zan_socket_create(const char *name) {
    if (name == nullptr)
        return -1;
    init_pending(pending);
    return names_daemon(name) ? create_daemon_end() : create_module_end();
}

int zan_socket_send(int fd, const void *data, int len) {
    return send_in_order(pending, {fd, nullptr, 0}, data, len, send_policy);
}

int zan_socket_send_to(int fd, const void *data, int len, const struct sockaddr_in *to) {
    return send_in_order(pending, {fd, generic(to), sizeof *to}, data, len, send_policy);
}

int zan_socket_recv(int fd, void *buf, int len) {
    return receive(fd, buf, len, 0);
}

int zan_socket_try_recv(int fd, void *buf, int len) {
    return receive(fd, buf, len, MSG_PEEK);
}

int zan_socket_recv_from(int fd, void *buf, int len, struct sockaddr_in *from) {
    const timeval timeout = {receive_timeout_s, 0};
    // The caller gets the result of the printing, as on every device in the field.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0)
        return std::printf("socket option  SO_RCVTIMEO not support\n");
    const int received = ipc_socket_recv_from(fd, buf, len, from);
    if (received < 0) {
        const ErrnoGuard error;
        std::printf("recvfrom err:%d\n", errno);
    }
    return received;
}

int zan_socket_delete(int fd) {
    discard_pending(pending, fd);
    close(fd);
    return 1;
}
