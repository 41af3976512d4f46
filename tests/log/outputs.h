// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace zan::test {

// A pseudo-terminal in raw mode: what is written to it arrives byte for byte.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    const std::string &path() const { return path_; }
    // Everything written to it since the last look.
    std::string take();
    // From here on it cannot be opened.
    void lock();

private:
    int master_;
    int slave_;
    std::string path_;
};

// A /dev of the test's own, with real pseudo-terminals 0 to 2, a further one as the
// console, and a socket for syslog.  Needs a private sandbox.
class LogOutputs {
public:
    static constexpr int terminals = 3;

    LogOutputs();
    ~LogOutputs();
    LogOutputs(const LogOutputs &) = delete;
    LogOutputs &operator=(const LogOutputs &) = delete;

    std::string console() { return console_->take(); }
    std::string terminal(int n) { return terminals_.at(static_cast<std::size_t>(n))->take(); }
    // The messages that arrived, without what syslog puts in front of each, which is
    // checked here.
    std::vector<std::string> syslog();

    // What "/dev/console" leads to from here on.
    void set_console(const std::string &path);
    void remove_terminal(int n) { terminals_.at(static_cast<std::size_t>(n)).reset(); }
    void lock_terminal(int n) { terminals_.at(static_cast<std::size_t>(n))->lock(); }
    void remove_syslog();
    // Puts a directory of plain files in the place of /dev/pts, empty at first.  The
    // terminals stay open where they are.
    static void hide_terminals();

private:
    void open_syslog();

    std::array<std::unique_ptr<Terminal>, terminals> terminals_;
    std::unique_ptr<Terminal> console_;
    int syslog_ = -1;
};

// "hh:mm:ss" in the zone that the tests run in, three hours and 25 minutes east.
std::string clock_text(std::time_t time);
void set_test_time_zone();

// Whether the text is the pattern with a time in the place of each "@" that has been
// the time since `since`.
bool is_logged_since(std::time_t since, const std::string &text, const std::string &pattern);

} // namespace zan::test
