// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace zan::sim {

// The last actions that modules asked for, a line each.
class ActionLog {
public:
    void add(std::string line) {
        lines_.push_back(std::move(line));
        if (lines_.size() > most_lines)
            lines_.pop_front();
    }

    std::string text() const {
        std::string text;
        for (const std::string &line : lines_)
            text += line + '\n';
        return text;
    }

private:
    static constexpr std::size_t most_lines = 1000;

    std::deque<std::string> lines_;
};

} // namespace zan::sim
