// SPDX-License-Identifier: MIT
#include "transport/tcp_transport.h"

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

constexpr int default_port = 2679;
constexpr int last_port = 65535;

// Bytes that wait for a peer that does not read.  Its notifications may take half of
// this; beyond all of it, zansim stops serving the peer.
constexpr std::size_t max_waiting_bytes = 65536;

// At most 1024, and some descriptors are left for zansim's files.
std::size_t max_connections() {
    constexpr rlim_t reserved = 32;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return std::clamp<rlim_t>(limit.rlim_cur, reserved + 1, reserved + 1024) - reserved;
}

// Before the next attempt to accept after a failure.
constexpr int pause_ms = 1000;

// -1 with errno on failure.
int listen_at(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    // The port may still have connections of a previous run.
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

TcpTransport::~TcpTransport() {
    for (const int fd : {listener_, wake_})
        if (fd >= 0)
            close(fd);
}

Result<Done> TcpTransport::open() {
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0)
        return Error{0, std::string("cannot serve agents: ") + std::strerror(errno)};
    for (int port = default_port; port <= last_port; ++port) {
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

void TcpTransport::wake() const {
    const std::uint64_t one = 1;
    // Fails only if a wake-up is pending already.
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

void TcpTransport::stop() {
    stopping_ = true;
    wake();
}

// ---- sending -----------------------------------------------------------------

Connection *TcpTransport::find(int endpoint) const {
    const auto found = connections_.find(endpoint);
    const bool usable =
        found != connections_.end() && !found->second->gone && !found->second->finishing();
    return usable ? found->second.get() : nullptr;
}

Delivery TcpTransport::send(Connection &connection, const Record &record) {
    connection.gone = !connection.send(encode_for_stream(record));
    if (connection.gone || connection.waiting() != 0)
        wake();
    if (connection.gone)
        return Delivery::gone;
    return connection.waiting() == 0 ? Delivery::sent : Delivery::kept;
}

Delivery TcpTransport::answer(int endpoint, const Record &record) {
    Connection *const connection = find(endpoint);
    if (connection == nullptr)
        return Delivery::gone;
    // A request is only served if its peer has room; delayed answers check here.
    if (endpoint != served_ && connection->waiting() > max_waiting_bytes) {
        connection->drops.add(log_, name_of({this, endpoint}), record.dst);
        return Delivery::dropped;
    }
    return send(*connection, record);
}

Delivery TcpTransport::notify(int endpoint, const Record &record) {
    Connection *const connection = find(endpoint);
    if (connection == nullptr)
        return Delivery::gone;
    const std::size_t size = ZAN_HEADER_SIZE + record.payload.size();
    if (connection->waiting() != 0 && connection->waiting() + size > max_waiting_bytes / 2) {
        connection->drops.add(log_, name_of({this, endpoint}), record.dst);
        return Delivery::dropped;
    }
    return send(*connection, record);
}

bool TcpTransport::exists(int endpoint) const {
    return find(endpoint) != nullptr;
}

// ---- serving -----------------------------------------------------------------

void TcpTransport::serve(LockedRef<RequestHandler> handler) {
    while (!stopping_) {
        auto guard = handler.lock();
        close_gone(*guard);
        std::vector<pollfd> fds = watched();
        guard.unlock();
        if (poll(fds.data(), fds.size(), paused_ ? pause_ms : -1) < 0)
            continue;
        guard.lock();
        serve_ready(guard, fds);
    }
}

void TcpTransport::close_gone(RequestHandler &handler) {
    for (auto entry = connections_.begin(); entry != connections_.end();) {
        const auto &[endpoint, connection] = *entry;
        if (!connection->gone) {
            ++entry;
            continue;
        }
        const Peer peer{this, endpoint};
        if (const std::size_t size = connection->reader.unfinished(); size != 0)
            log_.note(name_of(peer) + " ended within a record, of which " + std::to_string(size) +
                      " bytes had come");
        handler.disconnected(peer);
        entry = connections_.erase(entry);
    }
}

std::vector<pollfd> TcpTransport::watched() const {
    std::vector<pollfd> fds{{wake_, POLLIN, 0}, {paused_ ? -1 : listener_, POLLIN, 0}};
    for (const auto &[endpoint, connection] : connections_) {
        short events = 0;
        if (!connection->stalled)
            events |= POLLIN;
        if (connection->stalled || connection->waiting() != 0)
            events |= POLLOUT;
        fds.push_back({connection->fd(), events, 0});
    }
    return fds;
}

// Only this thread opens and closes connections, so they are those that were polled.
void TcpTransport::serve_ready(Guard &handler, const std::vector<pollfd> &ready) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(wake_, &count, sizeof count);
    auto state = ready.begin() + 2;
    for (const auto &[endpoint, connection] : connections_) {
        if (const short events = (state++)->revents; events != 0)
            serve_connection(handler, endpoint, *connection, events);
    }
    accept_all();
}

void TcpTransport::serve_connection(Guard &handler, int endpoint, Connection &connection,
                                    short events) {
    if ((events & POLLOUT) != 0)
        connection.gone |= !connection.flush();
    if (connection.waiting() == 0)
        connection.drops.end(log_, name_of({this, endpoint}));
    bool open = true;
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0)
        open = connection.receive();
    serve_records(handler, endpoint, connection);
    connection.gone |= !open;
}

void TcpTransport::serve_records(Guard &handler, int endpoint, Connection &connection) {
    const Peer peer{this, endpoint};
    for (;;) {
        connection.stalled = connection.waiting() > max_waiting_bytes;
        if (connection.stalled || connection.gone)
            return;
        const auto received = connection.reader.next();
        if (!received)
            break;
        served_ = endpoint;
        handler->serve(peer, *received);
        served_ = 0;
        handler.yield_to_waiters();
    }
    if (!connection.reader.lost() || connection.finishing())
        return;
    log_.note(name_of(peer) + " cannot be understood any more");
    handler->disconnected(peer);
    connection.finish();
}

void TcpTransport::accept_all() {
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && (errno == EINTR || errno == ECONNABORTED))
            continue;
        paused_ = fd < 0 && errno != EAGAIN;
        if (paused_)
            refuse(std::strerror(errno));
        if (fd < 0)
            return;
        if (connections_.size() >= max_connections()) {
            close(fd);
            refuse(std::to_string(connections_.size()) + " are open");
            continue;
        }
        refusing_ = false;
        connections_.emplace(++last_address_, std::make_unique<Connection>(fd));
    }
}

void TcpTransport::refuse(const std::string &why) {
    if (!refusing_)
        log_.warn("cannot accept another link: " + why);
    refusing_ = true;
}

} // namespace zan::sim
