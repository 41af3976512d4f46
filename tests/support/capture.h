// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace zan::test {

// Takes what goes to descriptor 1, by printf in any thread or from forked
// children, from construction until stop().  Standard output is line buffered
// meanwhile, so a line is there as soon as it is complete.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Everything captured; the descriptor is what it was before.
    std::string stop();

    // Everything so far, while the capture goes on.
    std::string so_far() const;

    // Waits until `text` has been printed `times` times: whether it was, within
    // the patience of a test.
    bool wait_for(const std::string &text, int times = 1) const;

private:
    int file_;
    int saved_;
    bool running_ = true;
};

// What zan_strcpy prints of a text that it has cut to this one.
std::string overflow_warning(const std::string &copied);

} // namespace zan::test
