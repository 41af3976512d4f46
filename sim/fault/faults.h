// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// The rules by which requests go wrong, in their order.
class Faults {
public:
    // What the chances of the rules that are added from now on start from: the same
    // number, the same faults.
    void seed(std::uint32_t seed) { seed_ = seed; }

    // An error tells the column of the mistake.
    Result<Done> add(std::string_view rule);

    // One rule to a line; empty lines and those that begin with "#" are passed over.
    // An error tells file, line and column.
    Result<Done> load(const std::string &file);

    void clear() { rules_.clear(); }
    bool empty() const { return rules_.empty(); }

    // The first rule whose turn it is; null when the request is spared.
    const Fault *strike(const FaultTarget &target);

    // The rules as they were written, a line each.
    std::string text() const;

private:
    struct Rule {
        Fault fault;
        std::mt19937 chance; // of its own, so that no rule disturbs another
        std::uint64_t fitting = 0;
        std::uint64_t struck = 0;

        bool has_its_turn();
    };

    void add(Fault fault);

    std::vector<Rule> rules_;
    std::uint32_t seed_ = 1;
};

} // namespace zan::sim
