// SPDX-License-Identifier: MIT
#pragma once

#include "command.h"

namespace zan::ctl {

// Print what arrives until a signal, or until the number of lines in the options.
ExitCode run_watch(Session &session, const ArrivalOptions &options, Output &output);
ExitCode run_listen(Session &session, const ArrivalOptions &options, Output &output);

} // namespace zan::ctl
