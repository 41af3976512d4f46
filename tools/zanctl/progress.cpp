// SPDX-License-Identifier: MIT
#include "progress.h"

#include "output.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <unistd.h>

namespace zan::ctl {
namespace {

void show(const std::string &text, long elapsed) {
    std::fprintf(stderr, "\rzanctl: %s (%ld s)", text.c_str(), elapsed);
}

} // namespace

Progress::Progress(const std::string &text) {
    if (isatty(STDERR_FILENO) == 0) {
        report(text);
        return;
    }
    show(text, 0);
    // Signals have to interrupt the waiting thread, so this one blocks them all.
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved);
    thread_ = std::thread([this, text] { show_elapsed(text); });
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

Progress::~Progress() {
    if (!thread_.joinable())
        return;
    ended_ = true;
    thread_.join();
    std::fputc('\n', stderr);
}

void Progress::show_elapsed(const std::string &text) {
    using Clock = std::chrono::steady_clock;
    constexpr auto poll_interval = std::chrono::milliseconds(50);
    const Clock::time_point start = Clock::now();
    for (long shown = 0; !ended_; std::this_thread::sleep_for(poll_interval)) {
        const auto elapsed = static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count());
        if (elapsed != shown)
            show(text, elapsed);
        shown = elapsed;
    }
}

std::string duration_text(double seconds) {
    const bool minutes = seconds >= 60 && std::fmod(seconds, 60) == 0;
    const double number = minutes ? seconds / 60 : seconds;
    std::ostringstream text;
    text << number << (minutes ? " minute" : " second") << (number == 1 ? "" : "s");
    return text.str();
}

} // namespace zan::ctl
