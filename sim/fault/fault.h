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
        none,        // it is served as usual
        drop,        // it is passed over
        mute,        // it is served, but its answer is lost
        fail,        // it is not served; the answer has the code and the text
        header_only, // it is served; the answer has no payload
        wrong_first, // it is served; an answer to another command comes first
        die,         // zansim ends as if it had been killed
    };

    Kind kind = Kind::none;
    std::chrono::milliseconds delay{0}; // before any of this
    int code = 0;
    std::string text;
};

// What a rule looks at.
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
    std::string text; // as it was written
    Effect effect;
    std::optional<std::int32_t> type;
    std::optional<std::int32_t> cmd;
    std::string command;                               // by name, when not by number
    std::string path;                                  // pattern
    std::string source;                                // pattern
    std::uint64_t threshold = std::uint64_t{1} << 32U; // of 2^32: how likely it strikes
    std::uint64_t skip = 0;                            // of the requests that fit
    std::uint64_t times = std::numeric_limits<std::uint64_t>::max();

    bool fits(const FaultTarget &target) const;
};

// What is wrong with a rule, and where.
struct Mistake {
    std::size_t column = 1; // from 1
    std::string text;
};

Result<Fault, Mistake> parse_fault(std::string_view text);

} // namespace zan::sim
