// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace zan::ctl {

// Replaces control characters and backslashes by \xHH, so that the text is one line.
std::string printable(std::string_view text);

} // namespace zan::ctl
