// SPDX-License-Identifier: MIT
#include "util/ipv6_line.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace zan {

in6_addr address_of_line(const char *line) {
    in6_addr address{};
    const std::size_t pairs = std::strcspn(line, "\n") / 2;
    for (std::size_t i = 0; i < sizeof address.s6_addr && i < pairs; ++i) {
        const char pair[] = {line[2 * i], line[2 * i + 1], '\0'};
        unsigned byte = 0;
        std::sscanf(pair, "%x", &byte);
        address.s6_addr[i] = static_cast<unsigned char>(byte);
    }
    return address;
}

char *interface_of_line(char *line) {
    line[std::strcspn(line, "\n")] = '\0';
    char *const blank = std::strrchr(line, ' ');
    return blank != nullptr ? blank + 1 : nullptr;
}

} // namespace zan
