// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "request/requester.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// Remote-management requests: those that are pending at the module that serves them,
// and the scripted answers while there is no such module.
class Management {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::string_view module = "ZAN_CWMP";

    // An answer from a file, and the requests that it answers.
    struct Scripted {
        std::optional<std::int32_t> cmd; // any if not given
        std::string request = "*";       // pattern of the payload
        std::int32_t result = 1;
        std::int32_t arg = 0;
        std::string payload;
    };

    // An error contains the file and the place.
    Result<Done> load(const std::string &file);
    Result<Done> parse(std::string_view text, const std::string &file);

    // The first that matches.
    const Scripted *scripted(std::int32_t cmd, std::string_view request) const;

    // An error if too many requests are pending.
    Result<Done> room() const;

    // How long requests stay pending.
    void set_answer_timeout(std::chrono::seconds answer_timeout) {
        answer_timeout_ = answer_timeout;
    }
    std::chrono::seconds answer_timeout() const { return answer_timeout_; }

    // The request was sent to the server.
    void expect(const Requester &requester, const Peer &server);

    // Removes and returns the requester that has waited longest for this command; only
    // of this name, unless it is empty.
    std::optional<Requester> take(std::int32_t cmd, std::string_view name);

    // Removes the requests from and to a module.  Returns the requesters whose server it
    // was.
    std::vector<Requester> forget(const Peer &peer);

    bool is_awaited() const { return !pending_.empty(); }

    // The servers and requesters of all pending requests.
    std::set<Peer> servers() const;
    std::set<Peer> requesters() const;

    // Removes the requests that have timed out and returns their requesters.
    std::vector<Requester> expire(Clock::time_point now);

private:
    struct Pending {
        Requester requester;
        Peer server;
        Clock::time_point until;
    };

    std::list<Pending> pending_; // oldest first
    std::chrono::seconds answer_timeout_{0};
    std::vector<Scripted> scripted_;
};

} // namespace zan::sim
