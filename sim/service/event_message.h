// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zan::sim {

// A message that tells of an event: which one, by ZAN_EVENTS, and what it tells.
struct EventMessage {
    std::string kind;
    bool has_all; // the members of that kind; without them it could be of another
    std::vector<std::pair<std::string, std::string>> members; // in the order of the kind
};

// Nothing when the text is no object of strings under keys of one kind.  The text
// does not carry its kind: it is the one with the fewest members that has its keys.
std::optional<EventMessage> read_event_message(std::string_view text);

} // namespace zan::sim
