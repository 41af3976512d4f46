// SPDX-License-Identifier: MIT
#include "printable.h"

#include <cstdio>

namespace zan::ctl {

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= ' ' && byte != 0x7f && c != '\\') {
            result += c;
            continue;
        }
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02X", byte);
        result += escape;
    }
    return result;
}

} // namespace zan::ctl
