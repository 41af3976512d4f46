// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zan::ctl {

// zansim sends spaces, control characters and "%" of a value as %XX, and an empty value,
// which would be no field, as %00.  Returns nothing for a text that is not encoded so.
std::optional<std::string> percent_decode(std::string_view text);

} // namespace zan::ctl
