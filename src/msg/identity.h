// SPDX-License-Identifier: MIT
// Who this process is to the daemon: the queue ids and names of zan.h.
#ifndef ZAN_MSG_IDENTITY_H
#define ZAN_MSG_IDENTITY_H

#include "zan.h"

namespace zan {

inline constexpr int no_queue = -1;
inline constexpr int no_link = -1;

// getpid() without a system call for every record: asked for once, and again in
// a forked child.
int own_pid();

} // namespace zan

#endif
