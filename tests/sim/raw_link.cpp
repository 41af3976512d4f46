// SPDX-License-Identifier: MIT
#include "sim/raw_link.h"

#include "support/patience.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace zan::test {

namespace {

constexpr int agent_pid = 0x01020304;

sockaddr_in published_address() {
    const std::string host = read_file("/tmp/zan.socketip");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_aton(host.substr(0, host.find('\n')).c_str(), &address.sin_addr);
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(read_file("/tmp/zan.socket"))));
    return address;
}

bool wait_for(int fd, short events) {
    pollfd state = {fd, events, 0};
    return poll(&state, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) > 0;
}

// What the library leaves in the order of the machine.
ByteOrder order_of(int type, int cmd) {
    const bool converted = (type == class_registration && cmd == cmd_register) ||
                           (type == class_cfg && cmd == cmd_get);
    return converted ? ByteOrder::network : ByteOrder::host;
}

} // namespace

RawLink::RawLink(std::string name, Buffer buffer)
    : name_(std::move(name)), fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (buffer == Buffer::small) {
        const int size = 4096;
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    const sockaddr_in address = published_address();
    if (connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "connect");
}

RawLink::~RawLink() {
    hang_up();
}

void RawLink::hang_up() {
    if (fd_ >= 0)
        close(fd_);
    fd_ = -1;
}

std::size_t RawLink::send_some(std::string_view bytes) const {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}

bool RawLink::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const std::size_t sent = send_some(bytes);
        bytes.remove_prefix(sent);
        if (sent == 0 && (errno != EAGAIN || !wait_for(fd_, POLLOUT)))
            return false;
    }
    return true;
}

void RawLink::send(const Fields &fields, ByteOrder order) const {
    EXPECT_TRUE(send(stream_bytes(fields, order)));
}

std::string RawLink::read(std::size_t size) const {
    std::string bytes(size, '\0');
    std::size_t held = 0;
    while (held < size) {
        if (!wait_for(fd_, POLLIN)) {
            ADD_FAILURE() << "zansim does not write to " << name_;
            return {};
        }
        const ssize_t got = recv(fd_, bytes.data() + held, size - held, 0);
        if (got <= 0)
            return {};
        held += static_cast<std::size_t>(got);
    }
    return bytes;
}

std::string RawLink::receive() const {
    std::string bytes = read(raw_header_size);
    if (bytes.empty())
        return {};
    std::size_t len = 0;
    for (std::size_t i = 0; i < 4; ++i)
        len = len << 8 | static_cast<unsigned char>(bytes[at::len + i]);
    if (len > raw_data_size) {
        ADD_FAILURE() << "zansim says that " << len << " bytes follow";
        return bytes;
    }
    return bytes + read(len);
}

bool RawLink::ended() const {
    char byte = 0;
    return wait_for(fd_, POLLIN) && recv(fd_, &byte, 1, 0) <= 0;
}

Fields RawLink::request(int type, int cmd, std::string payload) const {
    return {.type = type,
            .cmd = cmd,
            .dst = type == class_cfg ? "ZAN_CFG" : "",
            .src = name_,
            .pid = agent_pid,
            .payload = std::move(payload)};
}

std::string RawLink::call(int type, int cmd, std::string payload) const {
    send(request(type, cmd, std::move(payload)), order_of(type, cmd));
    return receive();
}

std::string RawLink::announce(int cmd) const {
    return call(class_registration, cmd, std::string(4, '\0'));
}

std::string RawLink::answer(const Zansim &zansim, int type, int cmd, int result,
                            std::string payload) const {
    return stream_bytes({.type = type,
                         .cmd = cmd,
                         .dst = name_,
                         .src = type == class_cfg ? "ZAN_CFG" : "ZAN",
                         .pid = zansim.pid(),
                         .result = result,
                         .payload = std::move(payload)},
                        ByteOrder::network);
}

} // namespace zan::test
