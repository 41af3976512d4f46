// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace zan::ctl {

// Reads a line of standard input.  A terminal prompts for it on standard error and does not
// echo it.  Throws Error at the end of the input, Interrupted.
std::string read_secret(const std::string &prompt);

} // namespace zan::ctl
