// SPDX-License-Identifier: MIT
#include "request/action.h"

#include <cstring>

namespace zan::sim {

Result<Action> read_action(const Record &request) {
    Action action;
    if (request.payload.size() != sizeof action)
        return Error{malformed,
                     "malformed record: an action has " + std::to_string(sizeof action) + " bytes"};
    std::memcpy(&action, request.payload.data(), sizeof action);
    if (std::memchr(action.name, 0, sizeof action.name) == nullptr)
        return Error{malformed, "malformed record: the name of an action is not terminated"};
    return action;
}

} // namespace zan::sim
