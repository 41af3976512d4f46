// SPDX-License-Identifier: MIT
#pragma once

#include "base/queue.h"
#include "transport/drop_reporter.h"

#include <cstddef>
#include <deque>

namespace zan::sim {

// Records that found their queue full, in order.  Answers have a lane of their own: a
// module that does not collect its notifications still gets its answers.
class Outbox {
public:
    enum class Lane { answers, notices };

    // False, without keeping the record, if the limit is reached.
    bool keep(Lane lane, Packet packet);

    std::deque<Packet> &lane(Lane lane) { return lane == Lane::answers ? answers_ : notices_; }
    void pop(Lane lane);
    bool empty() const { return answers_.empty() && notices_.empty(); }

    DropReporter drops;

private:
    std::deque<Packet> answers_;
    std::deque<Packet> notices_;
    std::size_t bytes_ = 0;
};

} // namespace zan::sim
