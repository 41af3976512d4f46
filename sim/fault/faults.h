// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

// The rules of fault injection, in order.
class Faults {
public:
    // Seeds the random numbers of rules that are added from now on.  The same seed
    // gives the same faults.
    void seed(std::uint32_t seed) { seed_ = seed; }

    // An error contains the column.
    Result<Done> add(std::string_view rule);

    // Reads one rule per line; ignores empty lines and lines that begin with "#".  An
    // error contains file, line and column.
    Result<Done> load(const std::string &file);

    void clear() { rules_.clear(); }
    bool empty() const { return rules_.empty(); }

    // The first rule that applies; null if none does.
    const Fault *match(const FaultTarget &target);

    // The rules as written, one per line.
    std::string text() const;

private:
    struct Rule {
        Fault fault;
        std::mt19937 chance; // one per rule, so that rules do not affect each other
        std::uint64_t candidates = 0;
        std::uint64_t matched = 0;

        bool applies();
    };

    void add(Fault fault);

    std::vector<Rule> rules_;
    std::uint32_t seed_ = 1;
};

} // namespace zan::sim
