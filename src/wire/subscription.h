// SPDX-License-Identifier: MIT
// The payload of a subscription to value changes: two settings bytes and a path.
#pragma once

#include "wire/scan.h"
#include "wire/sink.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zan::wire {

inline constexpr std::size_t subscription_settings_size = 2;

struct Subscription {
    std::uint8_t flag = 0;
    std::uint8_t option = 0; // comes back in each notification
    std::string_view path;
};

constexpr std::array<char, subscription_settings_size>
format_subscription_settings(std::uint8_t flag, std::uint8_t option) {
    return {static_cast<char>(flag), static_cast<char>(option)};
}

// Nothing if a settings byte is missing; the path may be empty.
constexpr std::optional<Subscription> parse_subscription(std::string_view payload) {
    if (payload.size() < subscription_settings_size)
        return std::nullopt;
    const auto flag = static_cast<std::uint8_t>(payload[0]);
    const auto option = static_cast<std::uint8_t>(payload[1]);
    payload.remove_prefix(subscription_settings_size);
    return Subscription{.flag = flag, .option = option, .path = until_nul(payload)};
}

template<Sink Out> constexpr void format_subscription(Out &out, const Subscription &subscription) {
    const auto settings = format_subscription_settings(subscription.flag, subscription.option);
    out.append(settings.data(), settings.size());
    append(out, subscription.path);
}

} // namespace zan::wire
