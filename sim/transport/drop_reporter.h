// SPDX-License-Identifier: MIT
#pragma once

#include "base/log.h"

#include <cstddef>
#include <string>

namespace zan::sim {

// Counts the records that are dropped because a receiver does not read.  Warns when
// that begins and when it is over.
class DropReporter {
public:
    // The receiver is named like "queue 5".
    void add(Log &log, const std::string &receiver, const std::string &module) {
        if (++dropped_ == 1)
            log.warn(receiver + " of " + module +
                     " is full and not being read: records to it are dropped");
    }

    void end(Log &log, const std::string &receiver) {
        if (dropped_ != 0)
            log.warn(receiver + " is being read again: " + std::to_string(dropped_) +
                     " records were dropped");
        dropped_ = 0;
    }

private:
    std::size_t dropped_ = 0;
};

} // namespace zan::sim
