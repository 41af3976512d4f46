// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zan::ctl {

// Splits a line into words as a shell does: quotation marks, backslashes and comments, but
// no expansion.  Nothing if a quotation mark is not closed.
std::optional<std::vector<std::string>> split_words(std::string_view line);

} // namespace zan::ctl
