// SPDX-License-Identifier: MIT
// Who this process is to the daemon: the queue ids and names of zan.h.
#pragma once

#include "zan.h"

#include <string_view>

namespace zan {

inline constexpr int no_queue = -1;
inline constexpr int no_link = -1;

// g_module_name, which a module can leave without a terminator.
std::string_view module_name();

// getpid() without a system call for every record: asked for once, and again in
// a forked child.
int own_pid();

} // namespace zan
