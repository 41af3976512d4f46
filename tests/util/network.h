// SPDX-License-Identifier: MIT
#pragma once

#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

namespace zan::test {

// Gives the lines to "ip -batch", which must accept all of them.
void ip(const std::string &lines);

// Adds or replaces files of /proc, or takes them away, for the rest of the process:
// names like "net/route", and what the file holds.
void provide_proc(const std::map<std::string, std::optional<std::string>> &files);

// Why the bridge br0, which is there, cannot be asked; empty when it can.  An emulator
// may not know the requests.
std::string why_no_bridge_requests();

// A network of the case's own: wan0 with 192.0.2.1, lan0 with 192.168.1.1, each up.
class NetworkTest : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        ip("link add wan0 type veth peer name far_wan0\n"
           "link add lan0 type veth peer name far_lan0\n"
           "addr add 192.0.2.1/24 dev wan0\n"
           "addr add 192.168.1.1/24 dev lan0\n"
           "link set far_wan0 up\n"
           "link set far_lan0 up\n"
           "link set wan0 up\n"
           "link set lan0 up\n");
    }
};

// A buffer in which a test sees whether it was written to.
struct Untouched {
    char text[256] = "untouched";
    std::string string() const { return text; }
};

} // namespace zan::test
