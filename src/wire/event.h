// SPDX-License-Identifier: MIT
// The payload of an event notification and of subscriptions to one: the event's code.
#pragma once

#include "wire/word.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zan::wire {

inline constexpr std::size_t event_size = word_size;

// Nothing unless the payload is exactly one code.
constexpr std::optional<std::int32_t> parse_event(std::string_view payload) {
    if (payload.size() != event_size)
        return std::nullopt;
    return load_word(payload);
}

constexpr std::array<char, event_size> format_event(std::int32_t code) {
    return store_word(code);
}

} // namespace zan::wire
