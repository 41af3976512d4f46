// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace zan::ctl {

// The program's standard output.  The library prints diagnostics on descriptor 1: while
// an Output exists, they are discarded or go to standard error, so that standard output
// has results only.
class Output {
public:
    Output();
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    // Sends the library's diagnostics to standard error.
    static void show_diagnostics();

    // Writes a line and flushes it.  Throws std::system_error if that fails.
    void line(std::string_view text);

    bool has_colors() const { return has_colors_; }

private:
    std::FILE *stream_ = nullptr;
    bool has_colors_ = false;
};

// A terminal that shows colors, unless NO_COLOR or TERM says otherwise.
bool has_colors(int descriptor);

enum class Color { none, red, green, blue };

// The text in this color, bold, when `enabled`.
std::string colored(bool enabled, Color color, std::string_view text);

// Prints "zanctl: TEXT" on standard error.
void report(const std::string &text);

} // namespace zan::ctl
