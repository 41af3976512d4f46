// SPDX-License-Identifier: MIT
#pragma once

#include "arguments.h"
#include "output.h"
#include "session.h"

namespace zan::ctl {

// Prints notifications until a signal asks for an end.
int run_watch(Session &session, const Arguments &arguments, Output &output);

// The same, and messages from other modules.
int run_listen(Session &session, const Arguments &arguments, Output &output);

} // namespace zan::ctl
