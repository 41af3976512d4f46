// SPDX-License-Identifier: MIT
#include "stub_daemon.h"

#include "wire/header.h"
#include "wire/place.h"

#include "zan.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zan::bench {

namespace {

constexpr char size_path[] = "/bench/size/";
constexpr std::size_t size_digits = 8;

void write_file(const char *path, const std::string &line) {
    FILE *file = std::fopen(path, "w");
    check(file != nullptr, path);
    std::fprintf(file, "%s\n", line.c_str());
    std::fclose(file);
}

template<typename Serve> pid_t start(Serve serve) {
    const pid_t server = fork();
    if (server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve();
        _exit(0);
    }
    return server;
}

// What makes the device a mesh agent at rest.
const char *mesh_value(const char *path) {
    if (std::strstr(path, "/DeviceRole") != nullptr)
        return "Agent";
    return std::strstr(path, "EasyMesh/Enable") != nullptr ? "1" : "0";
}

// Puts the value of the path in `data` in its place; returns its size.
std::size_t answer_in_place(char *data) {
    if (std::strncmp(data, size_path, sizeof size_path - 1) == 0) {
        const auto size = static_cast<std::size_t>(std::atoi(data + sizeof size_path - 1));
        std::memset(data, 'v', size);
        return size;
    }
    const char *const value = mesh_value(data);
    const std::size_t size = std::strlen(value);
    std::memcpy(data, value, size);
    return size;
}

void serve_queues(int request_queue, int registration_queue) {
    static zan_msg record;
    while (msgrcv(request_queue, &record, ZAN_BODY_SIZE, 0, 0) >= 0) {
        const int module_queue = static_cast<int>(record.mtype);
        record.body.result = 1;
        if (record.body.type == ZAN_CLASS_REGISTRATION) {
            msgsnd(registration_queue, &record, ZAN_HEADER_SIZE, 0);
            continue;
        }
        record.body.data[record.body.len] = '\0';
        const std::size_t size = answer_in_place(record.body.data);
        record.mtype = record.body.type;
        record.body.len = static_cast<int32_t>(size);
        msgsnd(module_queue, &record, ZAN_HEADER_SIZE + size, 0);
    }
}

// Agents send their messages in host order, all else in network order.
void serve_connection(int fd) {
    static zan_body body;
    while (read_whole(fd, &body, ZAN_HEADER_SIZE)) {
        if (wire::find_byte_order(body.type) == wire::ByteOrder::network)
            wire::convert_byte_order(body);
        if (!read_whole(fd, body.data, static_cast<std::size_t>(body.len)))
            return;
        body.data[body.len] = '\0';
        std::size_t size = 0;
        if (body.type == ZAN_CLASS_MESSAGE)
            body.cmd = ZAN_MESSAGE_ACK;
        else if (body.type == ZAN_CLASS_CFG)
            size = answer_in_place(body.data);
        body.result = 1;
        body.len = static_cast<int32_t>(size);
        wire::convert_byte_order(body);
        send(fd, &body, ZAN_HEADER_SIZE + size, MSG_NOSIGNAL);
    }
}

void serve_connections(int listener) {
    for (;;) {
        const int fd = accept(listener, nullptr, nullptr);
        if (fd < 0)
            return;
        start([fd] { serve_connection(fd); });
        close(fd);
    }
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

void check(bool done, const char *what) {
    if (done)
        return;
    std::perror(what);
    std::exit(1);
}

std::string path_for(std::size_t size) {
    const std::string digits = std::to_string(size);
    return size_path + std::string(size_digits - digits.size(), '0') + digits;
}

bool read_whole(int fd, void *into, std::size_t size) {
    return recv(fd, into, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

int open_connection(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    check(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
          "connect");
    return fd;
}

int open_listener(int *port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    check(bind(fd, reinterpret_cast<sockaddr *>(&address), size) == 0 && listen(fd, 8) == 0 &&
              getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) == 0,
          "listener");
    *port = ntohs(address.sin_port);
    return fd;
}

StubDaemon::StubDaemon(Serves serves) {
    for (int *queue : {&request_queue_, &registration_queue_}) {
        *queue = msgget(IPC_PRIVATE, 0600);
        check(*queue >= 0, "msgget");
    }
    write_file(wire::request_queue_file, std::to_string(request_queue_));
    write_file(wire::registration_queue_file, std::to_string(registration_queue_));
    queue_server_ = start([this] { serve_queues(request_queue_, registration_queue_); });
    if (serves == Serves::queues)
        return;
    const int listener = open_listener(&port_);
    write_file(wire::port_file, std::to_string(port_));
    write_file(wire::address_file, "127.0.0.1");
    connection_server_ = start([listener] { serve_connections(listener); });
    close(listener);
}

StubDaemon::~StubDaemon() {
    for (const int queue : {request_queue_, registration_queue_})
        msgctl(queue, IPC_RMID, nullptr);
    unlink(wire::request_queue_file);
    unlink(wire::registration_queue_file);
    waitpid(queue_server_, nullptr, 0);
    if (connection_server_ == 0)
        return;
    unlink(wire::port_file);
    unlink(wire::address_file);
    kill(connection_server_, SIGTERM);
    waitpid(connection_server_, nullptr, 0);
}

} // namespace zan::bench
