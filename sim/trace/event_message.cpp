// SPDX-License-Identifier: MIT
#include "trace/event_message.h"

#include <zan.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <span>

namespace zan::sim {

namespace {

using Json = nlohmann::json;
using Members = std::vector<std::pair<std::string, std::string>>;

struct Kind {
    const char *name;
    std::span<const char *const> keys;
};

#define ZANSIM_KEYS(kind, name, ...) constexpr const char *kind##_keys[] = {__VA_ARGS__};
ZAN_EVENTS(ZANSIM_KEYS)
#undef ZANSIM_KEYS

#define ZANSIM_KIND(kind, name, ...) Kind{#kind, kind##_keys},
constexpr Kind kinds[] = {ZAN_EVENTS(ZANSIM_KIND)};
#undef ZANSIM_KIND

// The members in the order of the text, including repeated ones, which a parsed object
// would drop.  Nothing if a value is not a string.
std::optional<Members> flat_members(std::string_view text) {
    Members members;
    bool flat = text.starts_with('{');
    const auto collect = [&](int depth, Json::parse_event_t event, Json &parsed) {
        if (event == Json::parse_event_t::key)
            members.emplace_back(parsed.get<std::string>(), std::string());
        else if (event == Json::parse_event_t::value && parsed.is_string() && !members.empty())
            members.back().second = parsed.get<std::string>();
        else if (event == Json::parse_event_t::value || depth > 0)
            flat = false;
        return flat;
    };
    if (!flat || Json::parse(text, collect, false).is_discarded() || !flat)
        return std::nullopt;
    return members;
}

bool same_key(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char left, char right) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
        return lower(left) == lower(right);
    });
}

bool has_key(const Kind &kind, std::string_view key) {
    return std::any_of(kind.keys.begin(), kind.keys.end(),
                       [&](std::string_view candidate) { return same_key(candidate, key); });
}

const Kind *kind_of(const Members &members) {
    const Kind *found = nullptr;
    for (const Kind &kind : kinds) {
        const bool fits = std::all_of(members.begin(), members.end(),
                                      [&](const auto &m) { return has_key(kind, m.first); });
        if (fits && (found == nullptr || kind.keys.size() < found->keys.size()))
            found = &kind;
    }
    return found;
}

} // namespace

std::optional<EventMessage> read_event_message(std::string_view text) {
    const auto members = flat_members(text);
    if (!members || members->empty())
        return std::nullopt;
    const Kind *const kind = kind_of(*members);
    if (kind == nullptr)
        return std::nullopt;
    EventMessage message{kind->name, true, {}};
    for (const char *const key : kind->keys) {
        // The first of two counts, as it does for the receiver.
        const auto member = std::find_if(members->begin(), members->end(),
                                         [&](const auto &m) { return same_key(m.first, key); });
        if (member == members->end())
            message.has_all = false;
        else
            message.members.emplace_back(key, member->second);
    }
    return message;
}

} // namespace zan::sim
