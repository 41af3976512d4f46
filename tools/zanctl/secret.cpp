// SPDX-License-Identifier: MIT
#include "secret.h"

#include "failure.h"
#include "interrupt.h"

#include <cerrno>
#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace zan::ctl {
namespace {

// Keeps the terminal of standard input, if it is one, from showing what is typed.
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
        std::fputc('\n', stderr); // the one that was typed did not show
    }
    HiddenInput(const HiddenInput &) = delete;
    HiddenInput &operator=(const HiddenInput &) = delete;

private:
    termios saved_ = {};
    bool terminal_;
};

} // namespace

// A byte at a time: what is behind the line is for the next reader.
std::string read_secret(const std::string &prompt) {
    const HiddenInput hidden(prompt);
    std::string line;
    for (char c = '\0';;) {
        const ssize_t got = read(STDIN_FILENO, &c, 1);
        throw_if_interrupted();
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0 && line.empty())
            throw Failure(exit_usage, "standard input has no " + prompt);
        if (got <= 0 || c == '\n')
            return line;
        line += c;
    }
}

} // namespace zan::ctl
