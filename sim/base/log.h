// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zan::sim {

// Receives what happens apart from records.
class Log {
public:
    virtual void note(std::string_view text) = 0;

    // A note that also goes to standard error.
    virtual void warn(std::string_view text) = 0;

protected:
    ~Log() = default;
};

} // namespace zan::sim
