// SPDX-License-Identifier: MIT
#pragma once

#include "result.h"
#include "services.h"

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// Remote-management requests: who waits for an answer of the module that serves
// them, and what is answered while there is none.
class Management {
public:
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

    // Somebody's request has gone to the module at this address.
    void expect(const Asker &asker, const Peer &server);

    // Who has waited longest for the answer to this command; of this name, unless it
    // is empty.
    std::optional<Asker> take(std::int32_t cmd, std::string_view name);

    // A module leaves: who waits for it in vain now.
    std::vector<Asker> forget(const Peer &peer);

private:
    struct Pending {
        Asker asker;
        Peer server;
    };

    std::list<Pending> pending_;
    std::vector<Scripted> scripted_;
};

} // namespace zan::sim
