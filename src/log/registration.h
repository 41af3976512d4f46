// SPDX-License-Identifier: MIT
#pragma once

#include "zan.h"

#include <atomic>

namespace zan {

// The entry that this process registered last, null before: it logs under that
// when a message names no module.
extern std::atomic<zan_log_entry *> g_log_name;

} // namespace zan
