// SPDX-License-Identifier: MIT
#pragma once

// Bounds the library's waits, which have no time limit of their own: a wait
// ends early only when a signal interrupts its system call.

namespace zan::ctl {

// Makes SIGINT, SIGTERM and SIGHUP ask for an end instead of ending at once.
// Call before anything else here.
void catch_signals();

// The first signal that asked for an end, or 0.
int interrupted();

// Throws Interrupted when a signal has asked for an end, unless cleaning up.
void throw_if_interrupted();

// From here on no signal asks for an end, and none interrupts a wait: cleaning
// up is bounded by its deadline alone.
void ignore_signals();

// While one exists, system calls are interrupted from `seconds` on, and at once
// when a signal asks for an end.  One at a time.
class Deadline {
public:
    explicit Deadline(double seconds);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    bool expired() const;
};

} // namespace zan::ctl
