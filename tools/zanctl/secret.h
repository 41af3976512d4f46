// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace zan::ctl {

// The next line of standard input.  At a terminal it is prompted for on standard
// error and not echoed.  Throws Failure when there is none, Interrupted.
std::string read_secret(const std::string &prompt);

} // namespace zan::ctl
