// SPDX-License-Identifier: MIT
#include "secret.h"

#include "error.h"
#include "file.h"

#include <cstdio>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace zan::ctl {
namespace {

// Turns off the echo of standard input if that is a terminal.
class HiddenInput {
public:
    explicit HiddenInput(const std::string &prompt)
        : terminal_(tcgetattr(STDIN_FILENO, &saved_) == 0) {
        if (!terminal_)
            return;
        std::fprintf(stderr, "%s: ", prompt.c_str());
        termios hidden = saved_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    ~HiddenInput() {
        if (!terminal_)
            return;
        tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
        std::fputc('\n', stderr); // the user's own was not echoed
    }
    HiddenInput(const HiddenInput &) = delete;
    HiddenInput &operator=(const HiddenInput &) = delete;

private:
    termios saved_ = {};
    bool terminal_;
};

} // namespace

std::string read_secret(const std::string &prompt) {
    const HiddenInput hidden(prompt);
    std::optional<std::string> line = read_input_line();
    if (!line)
        throw Error(ExitCode::usage, prompt + " is missing on standard input");
    return std::move(*line);
}

} // namespace zan::ctl
