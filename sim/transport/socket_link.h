// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trace.h"
#include "transport/connection.h"
#include "transport/peer.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

struct pollfd;

namespace zan::sim {

class Daemon;

// Modules that come over TCP connections: mesh agents.  An address is the number
// of a connection, counted from 1.  Every member but open() and stop() is used
// under the daemon's lock; serve() takes it.
class SocketLink final : public Link {
public:
    explicit SocketLink(Trace &trace) : trace_(trace) {}
    ~SocketLink() override;
    SocketLink(const SocketLink &) = delete;
    SocketLink &operator=(const SocketLink &) = delete;

    // Listens on the loopback address, at the first free port from the usual one.
    Result<Done> open();
    int port() const { return port_; } // 0 unless open

    // Serves what comes until stop(), which may be called from any thread.
    void serve(Daemon &daemon);
    void stop();

    std::string_view kind() const override { return "link"; }
    Delivery answer(int address, const Record &record) override;
    Delivery notify(int address, const Record &record) override;
    bool exists(int address) const override;
    Module newcomer(const Record &registration) const override;

private:
    using Connections = std::map<int, std::unique_ptr<Connection>>;

    Connection *find(int address) const;
    Delivery send(Connection &connection, const Record &record);
    void wake() const;
    void forget_gone(Daemon &daemon);
    std::vector<pollfd> watched() const;
    void serve_ready(Daemon &daemon, const std::vector<pollfd> &ready);
    void accept_all();
    void refuse(const std::string &why);
    void serve_connection(Daemon &daemon, int address, Connection &connection, short events);
    void serve_records(Daemon &daemon, int address, Connection &connection);

    Trace &trace_;
    int port_ = 0;
    int listener_ = -1;
    int wake_ = -1;
    std::atomic<bool> stopping_ = false;
    Connections connections_;
    int last_address_ = 0;
    int served_ = 0;        // whose request is being served on the link's own thread
    bool paused_ = false;   // takes no connection for a while
    bool refusing_ = false; // and has said so
};

} // namespace zan::sim
