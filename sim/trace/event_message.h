// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zan::sim {

// An event message: its kind, by ZAN_EVENTS, and its members.
struct EventMessage {
    std::string kind;
    bool has_all; // whether it has every member of that kind; if not, the kind is a guess
    std::vector<std::pair<std::string, std::string>> members; // in the order of the kind
};

// Nothing unless the text is an object of strings whose keys belong to one kind.  The
// text does not contain its kind: it is the one with the fewest members that has all keys.
std::optional<EventMessage> read_event_message(std::string_view text);

} // namespace zan::sim
