// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "transport/record.h"

#include <cstddef>
#include <cstdint>

namespace zan::sim {

// The payload of a file-and-action request.
struct Action {
    std::int32_t code; // the command again
    std::int32_t wait; // whether the sender waits for the result
    std::int32_t param;
    char name[1024]; // a file or a command line; ended by its first NUL
};
static_assert(sizeof(Action) == 1036 && offsetof(Action, name) == 12);

// Fails unless the size is right and the name is terminated.
Result<Action> read_action(const Record &request);

} // namespace zan::sim
