// SPDX-License-Identifier: MIT
#include "log_test.h"

#include <sys/shm.h>

#include <cerrno>

namespace {
bool attach_fails = false;
bool removal_fails = false;
} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for them
void *__real_shmat(int id, const void *address, int flags);
void *__wrap_shmat(int id, const void *address, int flags);
int __real_shmctl(int id, int command, shmid_ds *state);
int __wrap_shmctl(int id, int command, shmid_ds *state);
// NOLINTEND(bugprone-reserved-identifier)

void *__wrap_shmat(int id, const void *address, int flags) {
    if (!attach_fails)
        return __real_shmat(id, address, flags);
    errno = ENOMEM;
    return reinterpret_cast<void *>(-1);
}

int __wrap_shmctl(int id, int command, shmid_ds *state) {
    if (!removal_fails || command != IPC_RMID)
        return __real_shmctl(id, command, state);
    errno = EPERM;
    return -1;
}
}

namespace zan::test {
namespace {

using Attach = LogTest;

TEST_F(Attach, ThatFailsRegistersNothing) {
    attach_fails = true;
    testing::internal::CaptureStderr();
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shmat: Cannot allocate memory\n");
    EXPECT_EQ(zan_get_log_level("wlan"), nullptr);
    EXPECT_EQ(zan_log("wlan", 0, "lost"), 0);
    attach_fails = false;
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_NE(zan_get_log_level("wlan"), nullptr);
}

// Somebody else's segment, for example.
TEST_F(Attach, ClearsATableWithTheId0ThatCannotBeRemoved) {
    ASSERT_EQ(shmget(raw_table_key(), raw_table_size, IPC_CREAT | 0777), 0);
    RawTable(0).set(0, {.name = "dhcpd"});
    RawTable(0).set(63, {.name = "httpd", .cpu = 2});
    removal_fails = true;
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(raw_table_id(), 0);
    EXPECT_EQ(RawTable(0).bytes(), entry_bytes({.name = "wlan", .level = 6, .dest = 5}) +
                                       std::string(63 * raw_entry_size, '\0'));
}

} // namespace
} // namespace zan::test
