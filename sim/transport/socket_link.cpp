// SPDX-License-Identifier: MIT
#include "transport/socket_link.h"

#include "state/daemon.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zan::sim {

namespace {

constexpr int usual_port = 2679;
constexpr int last_port = 65535;

// What waits for a peer that does not read.  Its notifications take half of this;
// beyond all of it no request of that peer is served.
constexpr std::size_t max_waiting_bytes = 65536;

// As many as there are, but some descriptors are left for zansim's files.
std::size_t most_connections() {
    constexpr rlim_t reserved = 32;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return std::clamp<rlim_t>(limit.rlim_cur, reserved + 1, reserved + 1024) - reserved;
}

// Before the next attempt to take a connection that could not be taken.
constexpr int pause_ms = 1000;

// -1 with errno on failure.
int listen_at(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    // The connections of an earlier run do not hold the port.
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        listen(fd, SOMAXCONN) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

} // namespace

SocketLink::~SocketLink() {
    for (const int fd : {listener_, wake_})
        if (fd >= 0)
            close(fd);
}

Result<Done> SocketLink::open() {
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0)
        return Error{0, std::string("cannot serve agents: ") + std::strerror(errno)};
    for (int port = usual_port; port <= last_port; ++port) {
        listener_ = listen_at(port);
        if (listener_ >= 0) {
            port_ = port;
            return Done{};
        }
        if (errno != EADDRINUSE && errno != EACCES)
            break;
    }
    return Error{0,
                 std::string("cannot serve agents: no port on 127.0.0.1: ") + std::strerror(errno)};
}

void SocketLink::wake() const {
    const std::uint64_t one = 1;
    // Fails only when it is awake already.
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

void SocketLink::stop() {
    stopping_ = true;
    wake();
}

// ---- sending -----------------------------------------------------------------

Connection *SocketLink::find(int address) const {
    const auto found = connections_.find(address);
    const bool usable =
        found != connections_.end() && !found->second->gone && !found->second->finishing();
    return usable ? found->second.get() : nullptr;
}

Delivery SocketLink::send(Connection &connection, const Record &record) {
    connection.gone = !connection.send(encode_for_stream(record));
    if (connection.gone || connection.waiting() != 0)
        wake();
    if (connection.gone)
        return Delivery::gone;
    return connection.waiting() == 0 ? Delivery::sent : Delivery::kept;
}

Delivery SocketLink::answer(int address, const Record &record) {
    Connection *const connection = find(address);
    if (connection == nullptr)
        return Delivery::gone;
    // Who is being served had room; other answers come whether or not there is any.
    if (address != served_ && connection->waiting() > max_waiting_bytes) {
        connection->losses.add(trace_, name_of({this, address}), record.dst);
        return Delivery::dropped;
    }
    return send(*connection, record);
}

Delivery SocketLink::notify(int address, const Record &record) {
    Connection *const connection = find(address);
    if (connection == nullptr)
        return Delivery::gone;
    const std::size_t size = ZAN_HEADER_SIZE + record.payload.size();
    if (connection->waiting() != 0 && connection->waiting() + size > max_waiting_bytes / 2) {
        connection->losses.add(trace_, name_of({this, address}), record.dst);
        return Delivery::dropped;
    }
    return send(*connection, record);
}

bool SocketLink::exists(int address) const {
    return find(address) != nullptr;
}

Module SocketLink::newcomer(const Record &registration) const {
    return {.name = registration.src, .pid = registration.pid, .agent = true};
}

// ---- serving -----------------------------------------------------------------

void SocketLink::serve(Daemon &daemon) {
    while (!stopping_) {
        auto guard = daemon.lock();
        forget_gone(daemon);
        std::vector<pollfd> fds = watched();
        guard.unlock();
        if (poll(fds.data(), fds.size(), paused_ ? pause_ms : -1) < 0)
            continue;
        guard.lock();
        serve_ready(daemon, fds);
    }
}

void SocketLink::forget_gone(Daemon &daemon) {
    for (auto entry = connections_.begin(); entry != connections_.end();) {
        const auto &[address, connection] = *entry;
        if (!connection->gone) {
            ++entry;
            continue;
        }
        const Peer peer{this, address};
        if (const std::size_t size = connection->reader.unfinished(); size != 0)
            trace_.note(name_of(peer) + " ended within a record, of which " + std::to_string(size) +
                        " bytes had come");
        if (daemon.modules.find(peer) != nullptr)
            daemon.forget(peer);
        entry = connections_.erase(entry);
    }
}

std::vector<pollfd> SocketLink::watched() const {
    std::vector<pollfd> fds{{wake_, POLLIN, 0}, {paused_ ? -1 : listener_, POLLIN, 0}};
    for (const auto &[address, connection] : connections_) {
        short events = 0;
        if (!connection->stalled)
            events |= POLLIN;
        if (connection->stalled || connection->waiting() != 0)
            events |= POLLOUT;
        fds.push_back({connection->fd(), events, 0});
    }
    return fds;
}

// Connections come and go on this thread alone: they are those that were watched.
void SocketLink::serve_ready(Daemon &daemon, const std::vector<pollfd> &ready) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(wake_, &count, sizeof count);
    auto state = ready.begin() + 2;
    for (const auto &[address, connection] : connections_) {
        if (const short events = (state++)->revents; events != 0)
            serve_connection(daemon, address, *connection, events);
    }
    accept_all();
}

void SocketLink::serve_connection(Daemon &daemon, int address, Connection &connection,
                                  short events) {
    if ((events & POLLOUT) != 0)
        connection.gone |= !connection.flush();
    if (connection.waiting() == 0)
        connection.losses.end(trace_, name_of({this, address}));
    bool open = true;
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0)
        open = connection.receive();
    serve_records(daemon, address, connection);
    connection.gone |= !open;
}

void SocketLink::serve_records(Daemon &daemon, int address, Connection &connection) {
    const Peer peer{this, address};
    for (;;) {
        connection.stalled = connection.waiting() > max_waiting_bytes;
        if (connection.stalled || connection.gone)
            return;
        const auto received = connection.reader.next();
        if (!received)
            break;
        served_ = address;
        daemon.serve(peer, *received);
        served_ = 0;
        daemon.give_way();
    }
    if (!connection.reader.lost() || connection.finishing())
        return;
    trace_.note(name_of(peer) + " cannot be understood any more");
    if (daemon.modules.find(peer) != nullptr)
        daemon.forget(peer);
    connection.finish();
}

void SocketLink::accept_all() {
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && (errno == EINTR || errno == ECONNABORTED))
            continue;
        paused_ = fd < 0 && errno != EAGAIN;
        if (paused_)
            refuse(std::strerror(errno));
        if (fd < 0)
            return;
        if (connections_.size() >= most_connections()) {
            close(fd);
            refuse(std::to_string(connections_.size()) + " are open");
            continue;
        }
        refusing_ = false;
        connections_.emplace(++last_address_, std::make_unique<Connection>(fd));
    }
}

void SocketLink::refuse(const std::string &why) {
    if (!refusing_)
        trace_.warn("cannot take a further link: " + why);
    refusing_ = true;
}

} // namespace zan::sim
