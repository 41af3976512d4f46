// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "service/services.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// Remote-management requests: who waits for an answer of the module that serves
// them, and what is answered while there is none.
class Management {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::string_view module = "ZAN_CWMP";

    // An answer from a file, and which requests get it.
    struct Scripted {
        std::optional<std::int32_t> cmd; // any when not given
        std::string request = "*";       // pattern of the payload
        std::int32_t result = 1;
        std::int32_t arg = 0;
        std::string payload;
    };

    // An error tells file and place.
    Result<Done> load(const std::string &file);
    Result<Done> parse(std::string_view text, const std::string &file);

    // The first that fits.
    const Scripted *scripted(std::int32_t cmd, std::string_view request) const;

    // An error when too many wait for one more.
    Result<Done> room() const;

    // How long an answer may take.
    void set_patience(std::chrono::seconds patience) { patience_ = patience; }
    std::chrono::seconds patience() const { return patience_; }

    // Somebody's request has gone to the module at this address.
    void expect(const Asker &asker, const Peer &server);

    // Who has waited longest for the answer to this command; of this name, unless it
    // is empty.
    std::optional<Asker> take(std::int32_t cmd, std::string_view name);

    // A module leaves: who waits for it in vain now.
    std::vector<Asker> forget(const Peer &peer);

    bool is_awaited() const { return !pending_.empty(); }

    // For whom somebody waits, and who waits.
    std::set<Peer> servers() const;
    std::set<Peer> askers() const;

    // Who has waited too long and waits no more.
    std::vector<Asker> expire(Clock::time_point now);

private:
    struct Pending {
        Asker asker;
        Peer server;
        Clock::time_point until;
    };

    std::list<Pending> pending_; // who asked last is the last
    std::chrono::seconds patience_{0};
    std::vector<Scripted> scripted_;
};

} // namespace zan::sim
