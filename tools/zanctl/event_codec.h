// SPDX-License-Identifier: MIT
// The library's event codecs behind one face, whatever their number of members.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zan::ctl {

// What a member has: nothing for one that is not there.
using MemberValues = std::vector<std::optional<std::string>>;

struct EventCodec {
    const char *kind;
    std::span<const char *const> keys;
    // A value for each key, in their order.
    std::string (*encode)(const MemberValues &values);
    // Nothing when the text does not parse.
    std::optional<MemberValues> (*decode)(const std::string &text);
};

// A row for each of ZAN_EVENTS.
std::span<const EventCodec> event_codecs();

// Null for a kind that there is not.
const EventCodec *find_event_codec(const std::string &kind);

} // namespace zan::ctl
