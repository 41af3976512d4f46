// SPDX-License-Identifier: MIT
#pragma once

#include "transport/record.h"

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

enum class Delivery {
    sent,
    kept,     // until the receiver has room
    dropped,  // too much is waiting for the receiver
    too_long, // the transport cannot carry it
    gone,     // the receiver no longer exists
};

// A process that received the answer to a registration.
struct Collector {
    int endpoint; // that registered
    int pid;
};

// A way on which modules reach zansim.  Sending never blocks.  Except for serve()
// and what ends it, transports are used under the daemon's lock.
class Transport {
public:
    virtual ~Transport() = default;

    // What an endpoint is called: "queue" or "link".
    virtual std::string_view kind() const = 0;

    // Whether its modules are mesh agents.  A registration contains the process id
    // of an agent, and the instance of any other module.
    virtual bool has_agents() const = 0;

    // Sends the answer to a request from this endpoint.
    virtual Delivery answer(int endpoint, const Record &record) = 0;

    // Sends an unsolicited record.
    virtual Delivery notify(int endpoint, const Record &record) = 0;

    virtual bool exists(int endpoint) const = 0;

    // The process that last received a record at the endpoint; 0 if unknown.
    virtual int last_reader(int) const { return 0; }

    // The process that received the latest registration answer, once it is known,
    // and only the first time.
    virtual std::optional<Collector> take_collector() { return std::nullopt; }
};

// Where a module is reached.
struct Peer {
    Transport *transport = nullptr;
    int endpoint = -1; // the module's queue id, or the number of its connection

    auto operator<=>(const Peer &) const = default;
};

// "queue 5"
inline std::string name_of(const Peer &peer) {
    return std::string(peer.transport->kind()) + ' ' + std::to_string(peer.endpoint);
}

// Serves what transports receive.
class RequestHandler {
public:
    virtual void serve(const Peer &peer, const Received &received) = 0;

    // The peer has gone, or cannot be understood any more.
    virtual void disconnected(const Peer &peer) = 0;

protected:
    ~RequestHandler() = default;
};

} // namespace zan::sim
