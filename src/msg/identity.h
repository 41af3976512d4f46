// SPDX-License-Identifier: MIT
// How the daemon knows this process: the queue ids and names of zan.h.
#pragma once

#include "zan.h"

#include <string_view>

namespace zan {

inline constexpr int no_queue = -1;
inline constexpr int no_link = -1;

// g_module_name, which a module can leave without a terminator.
std::string_view module_name();

// Asks the system every time: a cached value would be the parent's in a child of clone(),
// _Fork() or vfork(), which run no handlers.
int own_pid();

} // namespace zan
