// SPDX-License-Identifier: MIT
// A line of /proc/net/if_inet6 and /proc/net/ipv6_route: an address of 32
// hexadecimal characters comes first, the interface last.
#pragma once

#include <netinet/in.h>

namespace zan {

inline constexpr int ipv6_line_size = 1024;

// Zeros for what the line does not have.
in6_addr address_of_line(const char *line);

// What stands behind the last blank, cut off from the line's end; null without a
// blank.
char *interface_of_line(char *line);

} // namespace zan
