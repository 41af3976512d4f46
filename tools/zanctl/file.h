// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace zan::ctl {

// The contents of a file; "-" is standard input.  Nothing if it cannot be read, for the
// reason in errno.  Throws Interrupted.
std::optional<std::string> read_file(const std::string &path);

// A line of standard input without its newline; nothing at the end.  Reads no byte after
// it.  Throws Interrupted.
std::optional<std::string> read_input_line();

} // namespace zan::ctl
