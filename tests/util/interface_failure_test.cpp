// SPDX-License-Identifier: MIT
// What no kernel answers when it is asked for an interface's IPv4 address.  The
// linker puts __wrap_ioctl in the place of the call.
#include <zan.h>

#include "support/capture.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <cstdarg>
#include <cstring>

namespace {

ifreq asked;

} // namespace

extern "C" int __wrap_ioctl(int, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    ifreq *const answer = va_arg(arguments, ifreq *);
    va_end(arguments);
    EXPECT_EQ(request, 0x8915u);
    asked = *answer;
    sockaddr_in address{};
    address.sin_family = AF_APPLETALK;
    address.sin_addr.s_addr = inet_addr("192.0.2.7");
    std::memcpy(&answer->ifr_addr, &address, sizeof address);
    return 0;
}

namespace zan::test {
namespace {

TEST(AnAddressOfAnotherFamily, IsAFailureThatFillsTheOutputs) {
    StdoutCapture output;
    char text[16] = "";
    EXPECT_EQ(get_ip_by_inf("wan0", text), -1);
    EXPECT_STREQ(text, "192.0.2.7");

    sockaddr_in address{};
    int length = 0;
    char again[16] = "";
    EXPECT_EQ(
        get_addr_by_inf(AF_INET, "wan0", reinterpret_cast<sockaddr *>(&address), &length, again),
        -1);
    EXPECT_EQ(address.sin_family, AF_APPLETALK);
    EXPECT_EQ(address.sin_addr.s_addr, inet_addr("192.0.2.7"));
    EXPECT_EQ(length, 16);
    EXPECT_STREQ(again, "192.0.2.7");
    EXPECT_EQ(output.stop(), "not AF_INET family \nnot AF_INET family \n");
}

TEST(TheRequest, NamesTheInterfaceAndTheFamily) {
    StdoutCapture output;
    char text[16];
    get_ip_by_inf("wan0", text);
    ifreq expected{};
    std::strcpy(expected.ifr_name, "wan0");
    expected.ifr_addr.sa_family = AF_INET;
    EXPECT_EQ(std::memcmp(&asked, &expected, sizeof asked), 0);
}

} // namespace
} // namespace zan::test
