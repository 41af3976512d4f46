// SPDX-License-Identifier: MIT
// The bridge lookup by itself, to be built for 32-bit x86: prints the port's name and the
// number of entries read.
#include <zan.h>

#include <cstdio>

int main(int argc, char **argv) {
    unsigned char mac[6];
    if (argc != 3 || zan_macstr_to_num(argv[2], mac) != 0)
        return 2;
    char name[16];
    const int entries = get_ifname_from_macaddr(argv[1], mac, name);
    if (entries < 0)
        return 1;
    std::printf("%s %d\n", name, entries);
    return sizeof(long) == 4 ? 0 : 3;
}
