// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

class Daemon;

// The nodes of the branch "/zansim", which are not stored but act or report.

Result<std::string> get_virtual(const Daemon &daemon, std::string_view path);
Result<std::string> set_virtual(Daemon &daemon, std::string_view path, std::string_view value);

struct VirtualNodeAccess {
    std::string_view name; // without "/zansim/"
    bool readable;
    bool writable;
};
std::vector<VirtualNodeAccess> virtual_nodes();

} // namespace zan::sim
