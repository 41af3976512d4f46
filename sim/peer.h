// SPDX-License-Identifier: MIT
#pragma once

#include "record.h"

#include <compare>

namespace zan::sim {

enum class Delivery {
    sent,
    kept,     // until the receiver has room
    dropped,  // the receiver takes too little
    too_long, // the way to the receiver cannot carry it
    gone,     // there is no receiver any more
};

// A way on which modules reach zansim.  Sending never waits.
class Link {
public:
    virtual ~Link() = default;

    // The answer to a request that came from this address.
    virtual Delivery answer(int address, const Record &record) = 0;

    // A record that nobody asked for.
    virtual Delivery notify(int address, const Record &record) = 0;

    // Whether somebody can be reached at the address.
    virtual bool exists(int address) const = 0;

    // The process that sent the request received last, or 0.
    virtual int last_sender() const = 0;
};

// Where a module is reached.
struct Peer {
    Link *link = nullptr;
    int address = -1; // the module's queue id

    auto operator<=>(const Peer &) const = default;
};

} // namespace zan::sim
