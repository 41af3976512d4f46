// SPDX-License-Identifier: MIT
// The library's event codecs behind one interface, whatever their number of members.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zan::ctl {

// The value of each member; nothing for a missing one.
using MemberValues = std::vector<std::optional<std::string>>;

struct EventCodec {
    const char *kind;
    std::span<const char *const> keys;
    // Takes a value for each key, in the order of `keys`.
    std::string (*encode)(const MemberValues &values);
    // Nothing if the text does not parse.
    std::optional<MemberValues> (*decode)(const std::string &text);
};

// One for each row of ZAN_EVENTS.
std::span<const EventCodec> event_codecs();

// Null for an unknown kind.
const EventCodec *find_event_codec(const std::string &kind);

} // namespace zan::ctl
