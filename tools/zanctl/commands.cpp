// SPDX-License-Identifier: MIT
#include "commands.h"

namespace zan::ctl {

std::span<const Family> families() {
    static const Family all[] = {tree_family, module_family,  device_family, action_family,
                                 path_family, network_family, log_family,    event_family};
    return all;
}

} // namespace zan::ctl
