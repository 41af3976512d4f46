// SPDX-License-Identifier: MIT
#include "state/subscriptions.h"

#include "base/text.h"

#include <algorithm>

namespace zan::sim {

namespace {

Error too_many() {
    return {too_many_subscriptions,
            "already " + std::to_string(max_subscriptions) + " subscriptions"};
}

} // namespace

bool Subscriptions::may_add(const Peer &peer) const {
    const auto is_of_peer = [&](const auto &entry) { return entry.peer == peer; };
    const auto count = std::count_if(watches_.begin(), watches_.end(), is_of_peer) +
                       std::count_if(events_.begin(), events_.end(), is_of_peer);
    return static_cast<std::size_t>(count) < max_subscriptions;
}

std::vector<Watch>::iterator Subscriptions::find(const Peer &peer, std::string_view path) {
    return std::find_if(watches_.begin(), watches_.end(), [&](const Watch &watch) {
        return watch.peer == peer && watch.path == path;
    });
}

Result<Done> Subscriptions::watch(const Peer &peer, std::string_view path, std::uint8_t option) {
    auto pattern = parse_pattern(path);
    if (!pattern)
        return pattern.error();
    if (const auto known = find(peer, path); known != watches_.end()) {
        known->option = option;
        return Done{};
    }
    if (!may_add(peer))
        return too_many();
    watches_.push_back({peer, std::string(path), std::move(*pattern), option});
    return Done{};
}

Result<Done> Subscriptions::unwatch(const Peer &peer, std::string_view path) {
    const auto known = find(peer, path);
    if (known == watches_.end())
        return Error{not_subscribed, "not subscribed: " + escape(path)};
    watches_.erase(known);
    return Done{};
}

Result<Done> Subscriptions::add_event(const Peer &peer, std::int32_t code) {
    if (!events_.contains({code, peer}) && !may_add(peer))
        return too_many();
    events_.insert({code, peer});
    return Done{};
}

Result<Done> Subscriptions::remove_event(const Peer &peer, std::int32_t code) {
    if (events_.erase({code, peer}) == 0)
        return Error{not_subscribed, "not subscribed: event " + std::to_string(code)};
    return Done{};
}

void Subscriptions::forget(const Peer &peer) {
    std::erase_if(watches_, [&](const Watch &watch) { return watch.peer == peer; });
    std::erase_if(events_, [&](const EventInterest &interest) { return interest.peer == peer; });
}

std::vector<Watch> Subscriptions::watching(const Path &path, bool gone) const {
    std::vector<Watch> found;
    for (const Watch &watch : watches_) {
        const bool above = covers(watch.pattern, path);
        const bool below = gone && reaches_into(watch.pattern, path);
        if (above || below)
            found.push_back(watch);
    }
    return found;
}

std::vector<Peer> Subscriptions::awaiting(std::int32_t code) const {
    std::vector<Peer> peers;
    for (const EventInterest &interest : events_) {
        if (interest.code == code)
            peers.push_back(interest.peer);
    }
    return peers;
}

} // namespace zan::sim
