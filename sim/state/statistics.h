// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zan::sim {

// Counts requests of one kind and remembers the last.
struct Counter {
    std::uint64_t count = 0;
    std::string last;

    void note(std::string_view text) {
        ++count;
        last = text;
    }
};

struct Statistics {
    std::uint64_t requests = 0;
    std::uint64_t notifications = 0;
    std::uint64_t dropped = 0;
    std::uint64_t applied = 0;
    std::uint64_t firewall_applied = 0;
    std::uint64_t faults = 0;
    Counter command_lines;
    Counter conversions;
    Counter actions;
    Counter shell_commands;
    Counter reboots;
    Counter firmware;
};

} // namespace zan::sim
