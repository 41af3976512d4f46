// SPDX-License-Identifier: MIT
#pragma once

// Limits the library's waits, which have no timeout: only a signal that interrupts the
// system call ends a wait early.

namespace zan::ctl {

// Makes SIGINT, SIGTERM and SIGHUP set a flag instead of ending the program.  Call this
// first.
void catch_signals();

// The first of these signals that arrived, or 0.
int interrupted();

// Throws Interrupted if one has arrived, except after ignore_signals().
void throw_if_interrupted();

// From now on these signals are ignored: only the deadline limits the cleanup.
void ignore_signals();

// While it exists, system calls are interrupted after `seconds`, and as soon as one of the
// signals arrives.  Only one may exist at a time.
class Deadline {
public:
    explicit Deadline(double seconds);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    bool expired() const;
};

} // namespace zan::ctl
