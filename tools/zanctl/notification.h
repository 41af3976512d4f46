// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace zan::ctl {

// A value-changed notification.  What each field means is zansim's choice.
struct Change {
    std::string source; // the module that changed it
    std::string path;
    std::string value;
    bool cut;               // the value may have been longer
    int kind;               // 1 changed, 2 added, 3 deleted
    int option;             // the subscription's
    std::string subscribed; // the path it was subscribed with
};

// Takes the arguments of the value-changed handler.
Change decode_change(std::string_view f1, std::string_view f2, std::string_view f3,
                     std::string_view f6, int f4, int f5);

// "changed", "added", "deleted", or the number.
std::string kind_text(int kind);

} // namespace zan::ctl
