// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

namespace zan::test {

// Whether the thread of this process waits for an event: it sleeps in a system call
// other than a timed sleep, while every other thread of the process sleeps too. A
// thread that waits only for a lock of the allocator or of a sanitizer does not
// count, because the thread that holds that lock is awake.
bool is_blocked(pid_t thread);

// Waits until is_blocked(thread): whether it became so.
bool wait_until_blocked(pid_t thread);

} // namespace zan::test
