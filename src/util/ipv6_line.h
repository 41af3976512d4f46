// SPDX-License-Identifier: MIT
// A line of /proc/net/if_inet6 and /proc/net/ipv6_route: an address of 32
// hexadecimal characters comes first, the interface last.
#pragma once

#include <netinet/in.h>

namespace zan {

inline constexpr int ipv6_line_size = 1024;

// Bytes that the line does not have are zero.
in6_addr address_of_line(const char *line);

// The text after the last space, without the newline, which is cut off the line; null
// without a space.
char *interface_of_line(char *line);

} // namespace zan
