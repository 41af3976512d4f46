// SPDX-License-Identifier: MIT
#include "interrupt.h"

#include "error.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <system_error>

namespace zan::ctl {
namespace {

// The timer keeps ticking after it expires: a signal just before a system call does not
// interrupt the call, and the library repeats an interrupted receive once.
constexpr timespec tick = {0, 10'000'000};

timer_t timer;
volatile std::sig_atomic_t end_signal = 0;
volatile std::sig_atomic_t timer_expired = 0;
volatile std::sig_atomic_t deadline_active = 0;
volatile std::sig_atomic_t signals_ignored = 0;

void arm_timer(const timespec &first) {
    const itimerspec setting = {tick, first};
    timer_settime(timer, 0, &setting, nullptr);
}

void disarm_timer() {
    const itimerspec setting = {};
    timer_settime(timer, 0, &setting, nullptr);
}

extern "C" void on_end_signal(int number) {
    const int saved_errno = errno;
    if (end_signal == 0)
        end_signal = number;
    if (deadline_active != 0)
        arm_timer(tick);
    errno = saved_errno;
}

extern "C" void on_timer(int /*number*/) {
    timer_expired = 1;
}

void set_handler(int number, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

bool is_ignored(int number) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

timespec to_timespec(double seconds) {
    const double whole = std::floor(seconds);
    return {static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
}

} // namespace

void catch_signals() {
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot create a timer");
    set_handler(SIGALRM, on_timer);
    set_handler(SIGINT, on_end_signal);
    set_handler(SIGTERM, on_end_signal);
    if (!is_ignored(SIGHUP)) // nohup
        set_handler(SIGHUP, on_end_signal);
    // Writing to a closed pipe fails instead, which leaves time to clean up.
    set_handler(SIGPIPE, SIG_IGN);

    // The caller may have blocked them, which would make the waits endless.
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGALRM, SIGINT, SIGTERM, SIGHUP})
        sigaddset(&wanted, number);
    sigprocmask(SIG_UNBLOCK, &wanted, nullptr);
}

int interrupted() {
    return end_signal;
}

void throw_if_interrupted() {
    if (end_signal != 0 && signals_ignored == 0)
        throw Interrupted{end_signal};
}

void ignore_signals() {
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        set_handler(number, SIG_IGN);
    signals_ignored = 1;
}

Deadline::Deadline(double seconds) {
    timer_expired = 0;
    deadline_active = 1;
    arm_timer(to_timespec(seconds));
    // A signal may have arrived before the timer was set.
    if (end_signal != 0 && signals_ignored == 0)
        arm_timer(tick);
}

Deadline::~Deadline() {
    deadline_active = 0;
    disarm_timer();
}

bool Deadline::expired() const {
    return timer_expired != 0;
}

} // namespace zan::ctl
