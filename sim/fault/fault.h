// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// What happens to a request.
struct Effect {
    enum class Kind {
        none,        // served normally
        drop,        // ignored: no effect and no answer
        mute,        // served, but its answer is suppressed
        fail,        // not served; the answer has the code and the text
        header_only, // served; the answer has no payload
        wrong_first, // served; an answer to another command precedes the answer
        die,         // zansim ends as if killed
    };

    Kind kind = Kind::none;
    std::chrono::milliseconds delay{0}; // before the rest
    int code = 0;
    std::string text;
};

// What rules are matched against.
struct FaultTarget {
    std::int32_t type;
    std::int32_t cmd;
    std::string_view path;
    std::string_view source;
};

// A rule: one or two actions and conditions that must all hold,
//   delay 250ms fail -5 "disk full" class=CFG command=set path=/sys/** times=3
// docs/zansim.md describes the words.
struct Fault {
    std::string text; // as written
    Effect effect;
    std::optional<std::int32_t> type;
    std::optional<std::int32_t> cmd;
    std::string command;                               // by name, if not by number
    std::string path;                                  // pattern
    std::string source;                                // pattern
    std::uint64_t threshold = std::uint64_t{1} << 32U; // of 2^32: the probability of a match
    std::uint64_t skip = 0;                            // of the requests that match
    std::uint64_t times = std::numeric_limits<std::uint64_t>::max();

    bool matches(const FaultTarget &target) const;
};

// An error in a rule, and its column.
struct RuleError {
    std::size_t column = 1; // from 1
    std::string text;
};

Result<Fault, RuleError> parse_fault(std::string_view text);

} // namespace zan::sim
