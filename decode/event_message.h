// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zan::decode {

// A message that reports an event of ZAN_EVENTS.
struct EventMessage {
    std::string kind;
    bool has_all; // members of that kind; without them it could be of another kind
    std::vector<std::pair<std::string, std::string>> members; // in the order of the kind
};

// Nothing unless the text is an object of strings under keys of one kind.  The text
// does not carry its kind: the kind with the fewest members that has its keys is taken.
std::optional<EventMessage> parse_event_message(std::string_view text);

} // namespace zan::decode
