// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace zan::sim {

// The latest actions that modules requested, one per line.
class ActionLog {
public:
    void add(std::string line) {
        lines_.push_back(std::move(line));
        if (lines_.size() > max_lines)
            lines_.pop_front();
    }

    std::string text() const {
        std::string text;
        for (const std::string &line : lines_)
            text += line + '\n';
        return text;
    }

private:
    static constexpr std::size_t max_lines = 1000;

    std::deque<std::string> lines_;
};

} // namespace zan::sim
