// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace zan::ctl {

// Control characters and backslashes as \xHH, so that the text stays one line.
std::string printable(std::string_view text);

} // namespace zan::ctl
