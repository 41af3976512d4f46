// SPDX-License-Identifier: MIT
// An agent's connection: records as a stream over TCP.  After an answer that did not come in
// time the link is closed and another one opened, so that a late answer finds nobody.
#ifndef ZAN_DETAIL_LINK_ENDPOINT_HPP
#define ZAN_DETAIL_LINK_ENDPOINT_HPP

#include "endpoint.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace zan {
namespace detail {

constexpr int no_link = -1;

// The seven words that travel in network order, from one order into the other.
inline void convert_byte_order(zan_body &body) {
    for (int32_t *word :
         {&body.type, &body.cmd, &body.pid, &body.result, &body.aux, &body.arg, &body.len})
        *word = static_cast<int32_t>(htonl(static_cast<uint32_t>(*word)));
}

class LinkEndpoint final : public Endpoint {
public:
    LinkEndpoint(std::string name, Options options)
        : Endpoint(std::move(name), std::move(options)) {}
    ~LinkEndpoint() override { close_link(); }

private:
    Result<void> open(const Deadline &deadline) override {
        close_link();
        {
            const std::lock_guard lock(mutex_);
            broken_ = false;
        }
        if (Result<void> connected = connect_to_daemon(deadline); !connected) {
            close_link();
            return connected;
        }
        if (!receiver_.start([this] { receive(); })) {
            close_link();
            return no_thread();
        }
        const std::int32_t nothing = 0;
        const std::string_view zeros(reinterpret_cast<const char *>(&nothing), sizeof nothing);
        const Result<Answer> answer =
            exchange({ZAN_CLASS_REGISTRATION, ZAN_REGISTER, "", zeros}, deadline);
        if (answer && answer->result > 0)
            return {};
        close_link();
        if (answer)
            return not_registered("the daemon did not accept agent " + name_);
        return Error{Failure::not_registered, answer.error().code,
                     "the daemon did not register agent " + name_ + ": " +
                         answer.error().message()};
    }

    Result<void> connect_to_daemon(const Deadline &deadline) {
        char ip[32] = {};
        zan_get_socket_ip(ip);
        ip[strcspn(ip, "\r\n")] = '\0';
        if (ip[0] == '\0')
            std::strcpy(ip, "192.168.0.1");
        const int port = zan_get_socket_port();
        const std::string place = std::string(ip) + " port " + std::to_string(port);

        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        if (port <= 0 || port > 65535 || inet_pton(AF_INET, ip, &address.sin_addr) != 1)
            return not_registered("no address of the daemon: " + place);
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd_ < 0)
            return not_registered(std::string("no socket: ") + std::strerror(errno));
        // A request goes at once, also behind a message that nobody answers.
        const int on = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        int error = 0;
        if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            error = errno == EINPROGRESS || errno == EINTR ? finish_connecting(deadline) : errno;
        if (error != 0)
            return not_registered("no daemon at " + place + ": " + std::strerror(error));
        return {};
    }

    int finish_connecting(const Deadline &deadline) const {
        if (!wait_for(POLLOUT, deadline))
            return ETIMEDOUT;
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size);
        return error;
    }

    bool wait_for(short events, const Deadline &deadline) const {
        for (;;) {
            pollfd ready{fd_, events, 0};
            const int count = poll(&ready, 1, deadline.poll_ms());
            if (count > 0)
                return true;
            if (count == 0 || errno != EINTR)
                return false;
        }
    }

    Result<void> send(const Request &request, const Deadline &deadline) override {
        const auto size = static_cast<std::size_t>(fill_record(record_, request, name_, pid()));
        if (!in_host_order(request))
            convert_byte_order(record_);
        const char *bytes = reinterpret_cast<const char *>(&record_);
        for (std::size_t sent = 0; sent < size;) {
            const ssize_t count = ::send(fd_, bytes + sent, size - sent, MSG_NOSIGNAL);
            if (count >= 0) {
                sent += static_cast<std::size_t>(count);
                continue;
            }
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN && wait_for(POLLOUT, deadline))
                continue;
            const std::string reason =
                errno == EAGAIN ? "the daemon does not read it" : std::strerror(errno);
            // Part of a record may have gone: nothing can follow it.
            lose_connection();
            return not_sent("link to the daemon: " + reason);
        }
        return {};
    }

    // As the C interface sends them.
    static bool in_host_order(const Request &request) {
        return request.type == ZAN_CLASS_MESSAGE || request.type == ZAN_CLASS_BROADCAST ||
               (request.type == ZAN_CLASS_REGISTRATION && request.cmd == ZAN_UNREGISTER);
    }

    Result<Answer> exchange(const Request &request, const Deadline &deadline) override {
        expect(request);
        if (Result<void> sent = send(request, deadline); !sent) {
            expect_nothing();
            return sent.error();
        }
        return await_answer(deadline);
    }

    void receive() {
        const auto body = std::make_unique<zan_body>();
        char *const bytes = reinterpret_cast<char *>(body.get());
        while (read_bytes(bytes, ZAN_HEADER_SIZE)) {
            convert_byte_order(*body);
            if (body->len < 0 || body->len > ZAN_DATA_SIZE)
                break;
            const auto len = static_cast<std::size_t>(body->len);
            if (!read_bytes(body->data, len))
                break;
            take_record(*body, ZAN_HEADER_SIZE + len);
        }
        lose_connection();
    }

    bool read_bytes(char *to, std::size_t size) const {
        while (size > 0) {
            const ssize_t count = recv(fd_, to, size, 0);
            if (count > 0) {
                to += count;
                size -= static_cast<std::size_t>(count);
                continue;
            }
            pollfd ready{fd_, POLLIN, 0};
            if (count == 0 || (errno != EAGAIN && errno != EINTR) ||
                (poll(&ready, 1, -1) < 0 && errno != EINTR))
                return false;
        }
        return true;
    }

    void close_link() {
        if (fd_ >= 0)
            shutdown(fd_, SHUT_RDWR);
        receiver_.join();
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = no_link;
    }

    void leave(const Deadline &deadline) override {
        if (connected()) {
            const std::int32_t nothing = 0;
            const std::string_view zeros(reinterpret_cast<const char *>(&nothing), sizeof nothing);
            static_cast<void>(send({ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, "", zeros}, deadline));
        }
        close_link();
    }

    bool daemon_present() override { return connected(); }
    void retire_previous(const Deadline &) override {}
    void settle() override {}
    Result<void> require_receiver() override { return {}; }

    zan_body record_{};
    int fd_ = no_link;
    HelperThread receiver_;
};

} // namespace detail
} // namespace zan

#endif
