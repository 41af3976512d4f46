// SPDX-License-Identifier: MIT
#include "support/stream_peer.h"

#include "support/patience.h"
#include "support/undisturbed.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zan::test {

namespace {

constexpr const char *port_file = "/tmp/zan.socket";
constexpr const char *address_file = "/tmp/zan.socketip";
constexpr std::size_t converted_words[] = {at::type, at::cmd, at::pid, at::result,
                                           at::aux,  at::arg, at::len};

[[noreturn]] void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void send_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            fail("send");
        if (sent > 0)
            bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::uint32_t big_endian_word(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

std::uint32_t little_endian_word(std::string_view bytes, std::size_t offset) {
    return __builtin_bswap32(big_endian_word(bytes, offset));
}

// Classes are small numbers: the order in which `type` is small is the record's.
std::size_t size_of_record(std::string_view bytes) {
    const bool network = big_endian_word(bytes, at::type) < 256;
    return raw_header_size +
           (network ? big_endian_word(bytes, at::len) : little_endian_word(bytes, at::len));
}

} // namespace

std::string stream_bytes(const Fields &fields, ByteOrder order) {
    SizedRecord made = make_record(fields);
    if (order == ByteOrder::network)
        for (const std::size_t offset : converted_words)
            std::reverse(made.record.bytes + offset, made.record.bytes + offset + 4);
    return {reinterpret_cast<const char *>(made.record.bytes), made.msgsz};
}

testing::AssertionResult same_bytes(std::string_view actual, std::string_view expected) {
    const auto record_of = [](std::string_view bytes) {
        SizedRecord made;
        made.record.set_bytes(0, bytes);
        made.msgsz = bytes.size();
        return made;
    };
    return same_record(record_of(actual), record_of(expected));
}

std::size_t bytes_waiting(int fd) {
    int waiting = 0;
    if (ioctl(fd, FIONREAD, &waiting) < 0)
        fail("FIONREAD");
    return static_cast<std::size_t>(waiting);
}

StreamPeer::StreamPeer(Start start) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr *>(&address), size) < 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size) < 0)
        fail("a listening socket");
    if (pipe(wake_) < 0)
        fail("pipe");
    port_ = ntohs(address.sin_port);
    write_file(port_file, std::to_string(port_) + "\n");
    write_file(address_file, "127.0.0.1\n");
    if (start == Start::listening)
        listen();
    thread_ = start_undisturbed([this] { run(); });
}

StreamPeer::~StreamPeer() {
    close(wake_[1]);
    thread_.join();
    close(wake_[0]);
    for (const int fd : connections_)
        close(fd);
    close(listener_);
    unlink(port_file);
    unlink(address_file);
}

void StreamPeer::listen() const {
    if (::listen(listener_, 16) < 0)
        fail("listen");
}

void StreamPeer::reply(std::string bytes) {
    const std::lock_guard lock(mutex_);
    replies_.push_back({std::move(bytes), false});
}

void StreamPeer::hang_up_at_next_record() {
    const std::lock_guard lock(mutex_);
    replies_.push_back({{}, true});
}

int StreamPeer::connection() const {
    if (!wait_for_connections(1))
        throw std::runtime_error("no connection was made");
    const std::lock_guard lock(mutex_);
    return connections_.back();
}

void StreamPeer::send(std::string_view bytes) {
    send_all(connection(), bytes);
}

void StreamPeer::deliver(int module_fd, std::string_view bytes) {
    const std::size_t expected = bytes_waiting(module_fd) + bytes.size();
    send(bytes);
    if (!eventually([&] { return bytes_waiting(module_fd) >= expected; }))
        throw std::runtime_error("the bytes did not arrive");
}

void StreamPeer::hang_up() {
    shutdown(connection(), SHUT_RDWR);
}

void StreamPeer::reset() {
    const int fd = connection();
    const linger at_once = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    // The thread may be waiting on the descriptor, so its number stays taken.
    const int nothing = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    dup2(nothing, fd);
    close(nothing);
}

// Once the thread has found nothing to do: twice, for the first time it may have looked
// before the call.
std::unique_lock<std::mutex> StreamPeer::lock_at_rest() const {
    std::unique_lock lock(mutex_);
    const int begun = idle_turns_;
    if (!changed_.wait_for(lock, patience, [&] { return idle_turns_ - begun >= 2; }))
        throw std::runtime_error("the peer does not come to rest");
    return lock;
}

int StreamPeer::connections() const {
    const auto lock = lock_at_rest();
    return static_cast<int>(connections_.size());
}

template<typename Condition> bool StreamPeer::wait(Condition condition) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, condition);
}

bool StreamPeer::wait_for_connections(int count) const {
    return wait([&] { return static_cast<int>(connections_.size()) >= count; });
}

bool StreamPeer::wait_for_closed(int count) const {
    return wait([&] { return closed_ >= count; });
}

std::vector<std::string> StreamPeer::records() const {
    const auto lock = lock_at_rest();
    return records_;
}

std::vector<std::string> StreamPeer::wait_for_records(std::size_t count) const {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, patience, [&] { return records_.size() >= count; }))
        throw std::runtime_error("only " + std::to_string(records_.size()) + " of " +
                                 std::to_string(count) + " records arrived");
    return records_;
}

std::string StreamPeer::unfinished() const {
    const auto lock = lock_at_rest();
    return received_;
}

void StreamPeer::forget_records() {
    const std::lock_guard lock(mutex_);
    records_.clear();
}

void StreamPeer::run() {
    while (true) {
        pollfd watched[] = {{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}, {-1, POLLIN, 0}};
        if (current_open_)
            watched[2].fd = connections_.back();
        // A socket that does not listen yet reports a hang-up all the time.
        const int timeout_ms = 10;
        if (poll(watched, std::size(watched), timeout_ms) < 0)
            continue;
        if (watched[0].revents != 0)
            return;
        const bool bytes = (watched[2].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
        const bool caller = (watched[1].revents & POLLIN) != 0;
        if (bytes)
            read_connection();
        if (caller)
            accept_connection();
        else if (watched[1].revents != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!bytes && !caller) {
            const std::lock_guard lock(mutex_);
            ++idle_turns_;
        }
        changed_.notify_all();
    }
}

void StreamPeer::accept_connection() {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    // Each piece that a test sends travels by itself.
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard lock(mutex_);
    connections_.push_back(fd);
    current_open_ = true;
    received_.clear();
}

// Reads all that has come: the module may already be making its next connection.
void StreamPeer::read_connection() {
    while (true) {
        char bytes[4096];
        const ssize_t size = recv(connections_.back(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && errno == EAGAIN)
            return;
        const std::lock_guard lock(mutex_);
        if (size <= 0) {
            current_open_ = false;
            ++closed_;
            return;
        }
        received_.append(bytes, static_cast<std::size_t>(size));
        split_records();
    }
}

void StreamPeer::split_records() {
    while (received_.size() >= raw_header_size) {
        const std::size_t size = size_of_record(received_);
        if (received_.size() < size)
            return;
        records_.push_back(received_.substr(0, size));
        received_.erase(0, size);
        if (replies_.empty())
            continue;
        const Reply reply = std::move(replies_.front());
        replies_.pop_front();
        if (reply.hang_up)
            shutdown(connections_.back(), SHUT_RDWR);
        else
            send_all(connections_.back(), reply.bytes);
    }
}

} // namespace zan::test
