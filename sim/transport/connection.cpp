// SPDX-License-Identifier: MIT
#include "transport/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace zan::sim {

namespace {

// A socket is writable if a third of this is free: room for the longest record.
constexpr int send_buffer = 256 * 1024;

void set_option(int fd, int level, int name, int value) {
    setsockopt(fd, level, name, &value, sizeof value);
}

} // namespace

Connection::Connection(int fd) : fd_(fd) {
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, SOL_SOCKET, SO_SNDBUF, send_buffer);
}

Connection::~Connection() {
    close(fd_);
}

bool Connection::receive() {
    // Not cleared between reads.
    static thread_local char buffer[64 * 1024];
    const ssize_t size = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (size < 0)
        return errno == EAGAIN || errno == EINTR;
    if (!finishing_)
        reader.add({buffer, static_cast<std::size_t>(size)});
    return size > 0;
}

bool Connection::send(std::string record) {
    waiting_ += record.size();
    records_.push_back(std::move(record));
    return flush();
}

bool Connection::writable() const {
    pollfd state = {fd_, POLLOUT, 0};
    return poll(&state, 1, 0) > 0;
}

// The library does not convert a header that arrives in pieces.  So each record is
// a segment of its own, and is started only if all of it has room.
bool Connection::flush() {
    while (!records_.empty() && writable()) {
        const std::string &record = records_.front();
        const ssize_t size = ::send(fd_, record.data() + sent_, record.size() - sent_,
                                    MSG_DONTWAIT | MSG_NOSIGNAL | MSG_EOR);
        if (size < 0)
            return errno == EAGAIN || errno == EINTR;
        sent_ += static_cast<std::size_t>(size);
        waiting_ -= static_cast<std::size_t>(size);
        if (sent_ == record.size()) {
            records_.pop_front();
            sent_ = 0;
        }
    }
    if (finishing_ && records_.empty())
        shutdown(fd_, SHUT_WR);
    return true;
}

void Connection::finish() {
    finishing_ = true;
    flush();
}

} // namespace zan::sim
