// SPDX-License-Identifier: MIT
// The requests to a bridge, byte for byte, and answers that no kernel can be made to give.
#include <zan.h>

#include "util/descriptors.h"

#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace zan::test {
namespace {

struct Entry {
    unsigned char mac[6];
    unsigned char port;
};

constexpr Entry wanted = {{2, 0, 0, 0, 0, 1}, 3};

// What the bridge answers, and what it has been asked.
struct {
    std::vector<int> failures; // of the reads of entries, in order; then they succeed
    std::vector<Entry> entries;
    int entries_claimed = -1; // instead of as many as there are
    int port_list_failure = 0;
    int interface_of[1024];
    bool nameless;

    int entry_reads;
    int port_list_reads;
    std::vector<unsigned> pauses;

    std::set<int> descriptors; // open before the bridge was asked
} script;

constexpr int loopback = 1; // is the first interface everywhere

int fail_with(int error) {
    errno = error;
    return -1;
}

int answer_entries(const unsigned long (&arguments)[4]) {
    const auto attempt = static_cast<std::size_t>(script.entry_reads++);
    EXPECT_EQ(arguments[2], 128U);
    if (attempt < script.failures.size())
        return fail_with(script.failures[attempt]);
    auto *const room = reinterpret_cast<__fdb_entry *>(arguments[1]);
    std::memset(room, 0xee, 128 * sizeof *room);
    for (std::size_t i = 0; i < script.entries.size(); ++i) {
        std::memcpy(room[i].mac_addr, script.entries[i].mac, 6);
        room[i].port_no = script.entries[i].port;
    }
    return script.entries_claimed >= 0 ? script.entries_claimed
                                       : static_cast<int>(script.entries.size());
}

int answer_port_list(const unsigned long (&arguments)[4]) {
    ++script.port_list_reads;
    EXPECT_EQ(arguments[2], 1024U);
    auto *const room = reinterpret_cast<int *>(arguments[1]);
    EXPECT_TRUE(std::all_of(room, room + 1024, [](int index) { return index == 0; }));
    if (script.port_list_failure != 0)
        return fail_with(script.port_list_failure);
    std::copy(std::begin(script.interface_of), std::end(script.interface_of), room);
    return 0;
}

int option(int fd, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(fd, SOL_SOCKET, name, &value, &size);
    return value;
}

} // namespace
} // namespace zan::test

extern "C" {

int __real_ioctl(int fd, unsigned long request, ...);
char *__real_if_indextoname(unsigned index, char *name);

int __wrap_ioctl(int fd, unsigned long request, ...) {
    using namespace zan::test;
    va_list rest;
    va_start(rest, request);
    void *const argument = va_arg(rest, void *);
    va_end(rest);
    EXPECT_EQ(request, 0x89F0U);
    EXPECT_EQ(option(fd, SO_DOMAIN), AF_INET);
    EXPECT_EQ(option(fd, SO_TYPE), SOCK_DGRAM);
    const auto *const named = static_cast<const ifreq *>(argument);
    EXPECT_STREQ(named->ifr_name, "br0");
    unsigned long arguments[4];
    std::memcpy(arguments, named->ifr_data, sizeof arguments);
    EXPECT_EQ(arguments[3], 0U);
    if (arguments[0] == 18)
        return answer_entries(arguments);
    EXPECT_EQ(arguments[0], 7U);
    return answer_port_list(arguments);
}

unsigned __wrap_sleep(unsigned seconds) {
    zan::test::script.pauses.push_back(seconds);
    return 0;
}

char *__wrap_if_indextoname(unsigned index, char *name) {
    using namespace zan::test;
    EXPECT_EQ(open_descriptors(), script.descriptors) << "the socket is closed by now";
    if (!script.nameless)
        return __real_if_indextoname(index, name);
    *name = '\0';
    return name;
}

} // extern "C"

namespace zan::test {
namespace {

class BridgeAnswer : public testing::Test {
protected:
    void SetUp() override {
        script.entries = {wanted};
        script.interface_of[wanted.port] = loopback;
        script.descriptors = open_descriptors();
    }
    void TearDown() override {
        EXPECT_EQ(open_descriptors(), script.descriptors) << "the socket is closed";
    }

    static int look_up() {
        const int result = get_ifname_from_macaddr("br0", wanted.mac, name);
        if (result >= 0) {
            EXPECT_STREQ(name, "lo");
        }
        return result;
    }

    static inline char name[16];
};

TEST_F(BridgeAnswer, NamesThePort) {
    EXPECT_EQ(look_up(), 1);
    EXPECT_EQ(script.entry_reads, 1);
    EXPECT_EQ(script.port_list_reads, 1);
    EXPECT_TRUE(script.pauses.empty());
}

TEST_F(BridgeAnswer, IsAskedForAgainWhileTheBridgeIsBusy) {
    script.failures.assign(30, EAGAIN);
    EXPECT_EQ(look_up(), 1);
    EXPECT_EQ(script.entry_reads, 31);
    EXPECT_EQ(script.pauses, std::vector<unsigned>(30, 0)) << "sleeps of no time";
}

TEST_F(BridgeAnswer, IsAskedFor31TimesAtMost) {
    script.failures.assign(31, EAGAIN);
    EXPECT_EQ(look_up(), -1);
    EXPECT_EQ(script.entry_reads, 31);
    EXPECT_EQ(script.port_list_reads, 0);
}

TEST_F(BridgeAnswer, IsNotAskedForAgainAfterAnotherFailure) {
    script.failures = {ENOTTY};
    EXPECT_EQ(look_up(), -1);
    EXPECT_EQ(script.entry_reads, 1);
    script.entry_reads = 0;
    script.failures = {EAGAIN, EAGAIN, ENODEV};
    EXPECT_EQ(look_up(), -1);
    EXPECT_EQ(script.entry_reads, 3);
}

TEST_F(BridgeAnswer, WithoutTheAddressHasNoPort) {
    script.entries = {{{2, 0, 0, 0, 0, 2}, 3}, {{1, 0, 0, 0, 0, 1}, 3}};
    EXPECT_EQ(look_up(), -1);
    script.entries.clear();
    EXPECT_EQ(look_up(), -1);
    EXPECT_EQ(script.port_list_reads, 0);
}

TEST_F(BridgeAnswer, CountsWithItsFirstEntryOfTheAddress) {
    Entry elsewhere = wanted;
    elsewhere.port = 4;
    script.entries = {{{2, 0, 0, 0, 0, 2}, 4}, wanted, elsewhere};
    EXPECT_EQ(look_up(), 3);
}

// The address is there, but behind the entries that were read.
TEST_F(BridgeAnswer, IsReadAsFarAsItGoes) {
    script.entries_claimed = 0;
    EXPECT_EQ(look_up(), -1);
    script.entries = {{{2, 0, 0, 0, 0, 2}, 4}, wanted};
    script.entries_claimed = 1;
    EXPECT_EQ(look_up(), -1);
    script.entries_claimed = 2;
    EXPECT_EQ(look_up(), 2);
}

TEST_F(BridgeAnswer, OfMoreEntriesThanThereIsRoomForIsCut) {
    script.entries_claimed = 100000;
    EXPECT_EQ(look_up(), 128);
}

TEST_F(BridgeAnswer, HasPortsOfAnyNumber) {
    for (const int port : {0, 1, 127, 128, 255}) {
        std::fill(std::begin(script.interface_of), std::end(script.interface_of), 999999);
        script.interface_of[port] = loopback;
        script.entries.front().port = static_cast<unsigned char>(port);
        EXPECT_EQ(look_up(), 1) << port;
    }
}

// One attempt, also when the bridge is busy.
TEST_F(BridgeAnswer, MayLackThePortList) {
    script.port_list_failure = EAGAIN;
    EXPECT_EQ(look_up(), -1);
    EXPECT_EQ(script.port_list_reads, 1);
}

TEST_F(BridgeAnswer, MayNameAnInterfaceThatHasGone) {
    for (const int index : {0, 999999, -1}) {
        script.interface_of[wanted.port] = index;
        EXPECT_EQ(look_up(), -1) << index;
    }
    script.interface_of[wanted.port] = loopback;
    script.nameless = true;
    EXPECT_EQ(look_up(), -1);
}

TEST_F(BridgeAnswer, IsNotAskedForWithoutASocket) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(look_up(), -1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(script.entry_reads, 0);
}

} // namespace
} // namespace zan::test
