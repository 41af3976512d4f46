// SPDX-License-Identifier: MIT
// The payload of a file-and-action request: zan_action_data, which always travels
// whole.
#pragma once

#include "wire/scan.h"
#include "wire/sink.h"
#include "wire/word.h"
#include "zan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zan::wire {

inline constexpr std::size_t action_size = sizeof(zan_action_data);
static_assert(action_size == 1036);
static_assert(offsetof(zan_action_data, code) == 0);
static_assert(offsetof(zan_action_data, wait) == 4);
static_assert(offsetof(zan_action_data, param) == 8);
static_assert(offsetof(zan_action_data, name) == 12);

struct Action {
    std::int32_t code = 0;  // the command again
    std::int32_t wait = 0;  // 0: the sender does not wait for the outcome
    std::int32_t param = 0; // the daemon's
    std::string_view name;  // of a file, or a command line
};

// Nothing unless the payload has the size of an action and its name is terminated.
constexpr std::optional<Action> parse_action(std::string_view payload) {
    if (payload.size() != action_size)
        return std::nullopt;
    constexpr std::size_t name_at = offsetof(zan_action_data, name);
    const std::string_view name = until_nul({payload.data() + name_at, action_size - name_at});
    if (name.size() == action_size - name_at)
        return std::nullopt;
    const auto word = [&](std::size_t at) { return load_word({payload.data() + at, word_size}); };
    return Action{.code = word(offsetof(zan_action_data, code)),
                  .wait = word(offsetof(zan_action_data, wait)),
                  .param = word(offsetof(zan_action_data, param)),
                  .name = name};
}

// Cuts the name to 1023 characters.
template<Sink Out> constexpr void format_action(Out &out, const Action &action) {
    constexpr std::size_t name_size = sizeof zan_action_data::name;
    for (const std::int32_t word : {action.code, action.wait, action.param}) {
        const auto bytes = store_word(word);
        out.append(bytes.data(), bytes.size());
    }
    const std::size_t length = std::min(action.name.size(), name_size - 1);
    out.append(action.name.data(), length);
    for (std::size_t at = length; at < name_size; ++at)
        append(out, '\0');
}

// The library builds actions in a zan_action_data itself.
inline std::string_view bytes_of(const zan_action_data &action) {
    return {reinterpret_cast<const char *>(&action), sizeof action};
}

} // namespace zan::wire
