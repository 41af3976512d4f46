// SPDX-License-Identifier: MIT
#pragma once

#include "transport/transport.h"
#include "tree/path.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// A subscription to a parameter or subtree.
struct Watch {
    Peer peer;
    std::string path; // as subscribed
    Path pattern;
    std::uint8_t option = 0;
};

// Per module; another one is refused.
inline constexpr std::size_t max_subscriptions = 1024;

class Subscriptions {
public:
    // If the peer watches the path already, only changes the option.
    Result<Done> watch(const Peer &peer, std::string_view path, std::uint8_t option);
    Result<Done> unwatch(const Peer &peer, std::string_view path);

    Result<Done> add_event(const Peer &peer, std::int32_t code);
    Result<Done> remove_event(const Peer &peer, std::int32_t code);

    void forget(const Peer &peer);

    // Subscribers affected by a change at the path: those of the path and of everything
    // above it.  If the node was deleted, also those of everything below it.
    std::vector<Watch> watching(const Path &path, bool gone) const;
    std::vector<Peer> awaiting(std::int32_t code) const;

    std::size_t size() const { return watches_.size() + events_.size(); }

private:
    struct EventInterest {
        std::int32_t code;
        Peer peer;
        auto operator<=>(const EventInterest &) const = default;
    };

    bool may_add(const Peer &peer) const;
    std::vector<Watch>::iterator find(const Peer &peer, std::string_view path);

    std::vector<Watch> watches_;
    std::set<EventInterest> events_;
};

} // namespace zan::sim
