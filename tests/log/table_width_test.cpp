// SPDX-License-Identifier: MIT
//
// A 32-bit and a 64-bit process on one table: one of the two is this test, the other
// a program built for the other width.
#include "log_test.h"

#include "support/program.h"
#include "support/sandbox.h"

namespace zan::test {
namespace {

constexpr const char *other_width = sizeof(void *) == 8 ? "32 bits\n" : "64 bits\n";

class TableOfTwoWidths : public LogTest {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_HOST_PROGRAMS();
        if (std::string(ZAN_TEST_TABLE_PEER).empty())
            GTEST_SKIP() << "no compiler for the other width (mipsel-linux-gnu-g++ with "
                            "qemu-mipsel, or i686-linux-gnu-g++)";
        LogTest::SetUp();
    }

    static std::string peer(const std::vector<std::string> &arguments = {}) {
        std::vector<std::string> command = {ZAN_TEST_TABLE_PEER};
        if (const std::string emulator = ZAN_TEST_PEER_EMULATOR; !emulator.empty())
            command.insert(command.begin(), emulator);
        command.insert(command.end(), arguments.begin(), arguments.end());
        Program program(command, {.host = true});
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(program.error(), "");
        return program.output();
    }
};

TEST_F(TableOfTwoWidths, BothReadAndWriteTheSameEntries) {
    ASSERT_EQ(zan_log_init_cpu("wlan", 6, 5, 77), 1);
    const std::string ours = other_width + std::string("0 wlan 6 5 1 77\n");
    EXPECT_EQ(peer(), ours);
    const std::string longest(31, 'n');
    EXPECT_EQ(peer({longest, "-3", "255", "-2147483648"}),
              ours + "1 " + longest + " -3 255 1 -2147483648\n");
    const zan_log_entry *const entry = zan_get_log_level(longest.c_str());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->level, -3);
    EXPECT_EQ(entry->dest, 255);
    EXPECT_EQ(entry->cpu, -2147483647 - 1);
    EXPECT_EQ(RawTable().bytes(1),
              entry_bytes({.name = longest, .level = -3, .dest = 255, .cpu = -2147483647 - 1}));
    EXPECT_EQ(peer({"wlan", "2", "1", "0"}).substr(0, 25),
              other_width + std::string("0 wlan 2 1 1 0\n1 "));
    EXPECT_EQ(zan_get_log_level("wlan")->level, 2);
    ASSERT_EQ(zan_log_init("dhcpd", 4, 3), 1);
    EXPECT_THAT(peer(), testing::EndsWith("\n2 dhcpd 4 3 1 0\n"));
}

TEST_F(TableOfTwoWidths, ThisOneJoinsTheOthers) {
    EXPECT_EQ(peer({"wlan", "6", "5", "0"}), other_width + std::string("0 wlan 6 5 1 0\n"));
    ASSERT_EQ(zan_log_init("dhcpd", 4, 3), 1);
    ASSERT_NE(zan_get_log_level("wlan"), nullptr);
    EXPECT_EQ(zan_get_log_level("wlan")->level, 6);
    EXPECT_EQ(RawTable().bytes(1), entry_bytes({.name = "dhcpd", .level = 4, .dest = 3}));
}

} // namespace
} // namespace zan::test
