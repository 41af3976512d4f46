// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string_view>

namespace zan::ctl {

// The program's standard output, to itself.  The library prints diagnostics on
// descriptor 1; they go to standard error instead, so that a script that reads
// the output gets results and nothing else.
class Output {
public:
    Output();
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    // Writes a line at once.  Throws std::system_error when it cannot.
    void line(std::string_view text);

private:
    std::FILE *stream_ = nullptr;
};

} // namespace zan::ctl
