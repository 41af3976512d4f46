// SPDX-License-Identifier: MIT
#pragma once

#include "trace.h"

#include <cstddef>
#include <string>

namespace zan::sim {

// Counts the records that a receiver lost because it does not read: told once when
// that begins and once when it is over.
class Losses {
public:
    // The receiver is named like "queue 5".
    void add(Trace &trace, const std::string &receiver, const std::string &module) {
        if (++lost_ == 1)
            trace.warn(receiver + " of " + module +
                       " is full and not being read: records to it are dropped");
    }

    void end(Trace &trace, const std::string &receiver) {
        if (lost_ != 0)
            trace.warn(receiver + " is being read again: " + std::to_string(lost_) +
                       " records were dropped");
        lost_ = 0;
    }

private:
    std::size_t lost_ = 0;
};

} // namespace zan::sim
