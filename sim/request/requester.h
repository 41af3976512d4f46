// SPDX-License-Identifier: MIT
#pragma once

#include "transport/transport.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zan::sim {

// How fault injection changes an answer.
struct AnswerFault {
    bool lost = false;
    bool header_only = false;
    bool wrong_first = false; // an answer to another command precedes it
};

// Where the answer to a request goes.
struct Requester {
    Peer peer;
    std::string name;
    std::int32_t type = 0;
    std::int32_t cmd = 0;
    bool awaited = true; // whether the requester waits for an answer
    AnswerFault answer_fault = {};
};

struct Request {
    const Record &record;
    const Requester &requester;

    const Peer &peer() const { return requester.peer; }

    // The payload up to its first NUL.
    std::string_view text() const;
};

} // namespace zan::sim
