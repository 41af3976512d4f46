// SPDX-License-Identifier: MIT
#pragma once

#include "base/queue.h"
#include "transport/losses.h"

#include <cstddef>
#include <deque>

namespace zan::sim {

// Records that found their queue full, in the order in which they were sent.
// Answers and notifications wait apart: a module that does not collect its
// notifications still gets its answers.
class Outbox {
public:
    enum class Lane { answers, notices };

    // False, and nothing kept, when more than the bound is waiting.
    bool keep(Lane lane, Packet packet);

    std::deque<Packet> &lane(Lane lane) { return lane == Lane::answers ? answers_ : notices_; }
    void pop(Lane lane);
    bool empty() const { return answers_.empty() && notices_.empty(); }

    Losses losses;

private:
    std::deque<Packet> answers_;
    std::deque<Packet> notices_;
    std::size_t bytes_ = 0;
};

} // namespace zan::sim
