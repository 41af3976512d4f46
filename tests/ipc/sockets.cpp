// SPDX-License-Identifier: MIT
#include "ipc/sockets.h"

#include "support/patience.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zan::test {
namespace {

int check(int result, const char *what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

const sockaddr *generic(const sockaddr_in *address) {
    return reinterpret_cast<const sockaddr *>(address);
}
sockaddr *generic(sockaddr_in *address) {
    return reinterpret_cast<sockaddr *>(address);
}

Descriptor bound(int type, const char *host, int port) {
    Descriptor fd(check(socket(AF_INET, type | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = ipv4(host, port);
    check(bind(fd.get(), generic(&address), sizeof address), "bind");
    return fd;
}

bool wait_for(int fd, short events) {
    pollfd watched = {fd, events, 0};
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(patience);
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace

int Descriptor::release() {
    return std::exchange(fd_, -1);
}

void Descriptor::reset(int fd) {
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

sockaddr_in ipv4(const char *host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

sockaddr_un local(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

std::string text_of(const sockaddr_in &address) {
    char host[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(address.sin_port));
}

std::string own_address(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    check(getsockname(fd, generic(&address), &size), "getsockname");
    return text_of(address);
}

std::string peer_address(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    check(getpeername(fd, generic(&address), &size), "getpeername");
    return text_of(address);
}

int port_of(int fd) {
    const std::string address = own_address(fd);
    return std::stoi(address.substr(address.find(':') + 1));
}

int option(int fd, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    check(getsockopt(fd, SOL_SOCKET, name, &value, &size), "getsockopt");
    return value;
}

std::chrono::microseconds timeout_option(int fd, int name) {
    timeval value{};
    socklen_t size = sizeof value;
    check(getsockopt(fd, SOL_SOCKET, name, &value, &size), "getsockopt");
    return std::chrono::seconds(value.tv_sec) + std::chrono::microseconds(value.tv_usec);
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

int open_descriptors() {
    DIR *directory = opendir("/proc/self/fd");
    int count = 0;
    while (directory != nullptr && readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return count;
}

Descriptor tcp_listener(int port, const char *host, int receive_buffer) {
    Descriptor fd = bound(SOCK_STREAM, host, port);
    // Accepted connections inherit it.
    if (receive_buffer != 0)
        check(setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer),
              "SO_RCVBUF");
    check(listen(fd.get(), 16), "listen");
    return fd;
}

Descriptor tcp_connection(int port) {
    Descriptor fd(check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = ipv4("127.0.0.1", port);
    check(connect(fd.get(), generic(&address), sizeof address), "connect");
    return fd;
}

Descriptor udp_socket(int port) {
    return bound(SOCK_DGRAM, "127.0.0.1", port);
}

Descriptor local_listener(const std::string &path) {
    Descriptor fd(check(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_un address = local(path);
    check(bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), "bind");
    check(listen(fd.get(), 16), "listen");
    return fd;
}

Descriptor accept_one(const Descriptor &listener) {
    if (!wait_readable(listener.get()))
        throw std::runtime_error("nobody connects");
    return Descriptor(check(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

Pair stream_pair() {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "socketpair");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string some_bytes(std::size_t size, unsigned int seed) {
    std::string bytes(size, '\0');
    std::uint32_t state = seed;
    for (char &byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string read_bytes(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size && wait_readable(fd)) {
        const ssize_t n = read(fd, bytes.data() + done, size - done);
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    bytes.resize(done);
    return bytes;
}

std::string read_available(int fd) {
    std::string bytes;
    char block[4096];
    for (;;) {
        const ssize_t n = recv(fd, block, sizeof block, MSG_DONTWAIT);
        if (n <= 0)
            return bytes;
        bytes.append(block, static_cast<std::size_t>(n));
    }
}

bool wait_readable(int fd) {
    return wait_for(fd, POLLIN);
}

bool wait_writable(int fd) {
    return wait_for(fd, POLLOUT);
}

std::size_t fill(int fd) {
    const std::string block(4096, '*');
    std::size_t total = 0;
    for (;;) {
        const ssize_t n = send(fd, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n <= 0)
            return total;
        total += static_cast<std::size_t>(n);
    }
}

bool holds_in_child(const std::function<bool()> &check_there) {
    std::fflush(stdout);
    const pid_t child = check(fork(), "fork");
    if (child == 0) {
        const bool held = check_there();
        std::fflush(stdout);
        _exit(held ? 0 : 1);
    }
    int status = -1;
    check(waitpid(child, &status, 0), "waitpid");
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace zan::test
