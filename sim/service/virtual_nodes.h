// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>
#include <string_view>

namespace zan::sim {

class Daemon;

// zansim's own branch, "/zansim": nodes that are not stored but act or report.
bool is_virtual(std::string_view path);

Result<std::string> get_virtual(const Daemon &daemon, std::string_view path);
Result<std::string> set_virtual(Daemon &daemon, std::string_view path, std::string_view value);

} // namespace zan::sim
