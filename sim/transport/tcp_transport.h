// SPDX-License-Identifier: MIT
#pragma once

#include "base/locked.h"
#include "base/log.h"
#include "base/result.h"
#include "transport/connection.h"
#include "transport/transport.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

struct pollfd;

namespace zan::sim {

// Modules that are reached over TCP connections: mesh agents.  An endpoint is the
// number of a connection, counted from 1.
class TcpTransport final : public Transport {
public:
    explicit TcpTransport(Log &log) : log_(log) {}
    ~TcpTransport() override;
    TcpTransport(const TcpTransport &) = delete;
    TcpTransport &operator=(const TcpTransport &) = delete;

    // Listens on the loopback address, at the first free port from the default on.
    Result<Done> open();
    int port() const { return port_; } // 0 unless open

    // Serves requests until stop(), which may be called from any thread.
    void serve(LockedRef<RequestHandler> handler);
    void stop();

    std::string_view kind() const override { return "link"; }
    bool has_agents() const override { return true; }
    Delivery answer(int endpoint, const Record &record) override;
    Delivery notify(int endpoint, const Record &record) override;
    bool exists(int endpoint) const override;

private:
    using Guard = LockedRef<RequestHandler>::Guard;
    using Connections = std::map<int, std::unique_ptr<Connection>>;

    Connection *find(int endpoint) const;
    Delivery send(Connection &connection, const Record &record);
    void wake() const;
    void close_gone(RequestHandler &handler);
    std::vector<pollfd> watched() const;
    void serve_ready(Guard &handler, const std::vector<pollfd> &ready);
    void accept_all();
    void refuse(const std::string &why);
    void serve_connection(Guard &handler, int endpoint, Connection &connection, short events);
    void serve_records(Guard &handler, int endpoint, Connection &connection);

    Log &log_;
    int port_ = 0;
    int listener_ = -1;
    int wake_ = -1;
    std::atomic<bool> stopping_ = false;
    Connections connections_;
    int last_address_ = 0;
    int served_ = 0;        // the connection whose request serve() is serving
    bool paused_ = false;   // accepts no connection for a while
    bool refusing_ = false; // and has warned of it
};

} // namespace zan::sim
