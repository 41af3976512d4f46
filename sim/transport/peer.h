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
    dropped,  // the receiver takes too little
    too_long, // the way to the receiver cannot carry it
    gone,     // there is no receiver any more
};

struct Module;

// A process that received the answer to a registration.
struct Collector {
    int address; // that registered
    int pid;
};

// A way on which modules reach zansim.  Sending never waits.
class Link {
public:
    virtual ~Link() = default;

    // What it has addresses of: "queue".
    virtual std::string_view kind() const = 0;

    // The answer to a request that came from this address.
    virtual Delivery answer(int address, const Record &record) = 0;

    // A record that nobody asked for.
    virtual Delivery notify(int address, const Record &record) = 0;

    // Whether somebody can be reached at the address.
    virtual bool exists(int address) const = 0;

    // The process that last received a record at the address; 0 if unknown.
    virtual int last_reader(int) const { return 0; }

    // The process that received the latest registration answer, once it is known,
    // and only the first time.
    virtual std::optional<Collector> take_collector() { return std::nullopt; }

    // The module that a registration received just now makes known.
    virtual Module newcomer(const Record &registration) const = 0;
};

// Where a module is reached.
struct Peer {
    Link *link = nullptr;
    int address = -1; // the module's queue id, or the number of its link

    auto operator<=>(const Peer &) const = default;
};

// "queue 5"
inline std::string name_of(const Peer &peer) {
    return std::string(peer.link->kind()) + ' ' + std::to_string(peer.address);
}

} // namespace zan::sim
