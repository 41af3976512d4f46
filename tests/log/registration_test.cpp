// SPDX-License-Identifier: MIT
#include "log_test.h"

#include "support/records.h"
#include "support/worker.h"

#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Registration : public LogTest {
protected:
    std::vector<std::string> requests() { return daemon.take_payloads(); }

    static std::string key_text() {
        char text[32];
        std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned int>(raw_table_key()));
        return text;
    }

    static std::string zeros(std::size_t size) { return std::string(size, '\0'); }

    // Whether the record announces the cpu test of the module with this name.
    static testing::AssertionResult announces(const SizedRecord &record, const std::string &name) {
        std::string payload = "cpu_test " + name + " " + std::to_string(getpid());
        payload.resize(128);
        return same_record(record,
                           message_record(cmd_send, {.mtype = g_msq_qid,
                                                     .dst = "SEHD",
                                                     .src = "probe",
                                                     .pid = static_cast<std::int32_t>(getpid()),
                                                     .time = record.record.word(at::time),
                                                     .payload = payload}));
    }
};

// In a fresh namespace the kernel gives the first segment the id 0.
TEST_F(Registration, CreatesTheTable) {
    ASSERT_EQ(raw_table_id(), -1);
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_GT(raw_table_id(), 0);
    EXPECT_EQ(segment_size(0), 0U);
    EXPECT_EQ(segment_size(raw_table_id()), raw_table_size);
    EXPECT_EQ(read_file("/tmp/ipc_used"), key_text());
    EXPECT_EQ(RawTable().bytes(),
              entry_bytes({.name = "wlan", .level = 6, .dest = 5}) + zeros(63 * raw_entry_size));
    shmid_ds state = {};
    ASSERT_EQ(shmctl(raw_table_id(), IPC_STAT, &state), 0);
    EXPECT_EQ(state.shm_perm.mode & 0777U, 0777U);
}

TEST_F(Registration, TruncatesTheKeyFile) {
    write_file("/tmp/ipc_used", "0x1234567890abcdef0\nand more\n");
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(read_file("/tmp/ipc_used"), key_text());
}

TEST_F(Registration, DoesWithoutAKeyFile) {
    ASSERT_EQ(std::system("mkdir /tmp/ipc_used"), 0);
    StdoutCapture out;
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.name = "wlan", .level = 6, .dest = 5}));
}

TEST_F(Registration, JoinsAnExistingTable) {
    const int id = create_raw_table();
    ASSERT_GT(id, 0);
    const RawEntry other = {.name = "dhcpd", .level = 4, .dest = 3};
    RawTable(id).set(0, other);
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(raw_table_id(), id);
    EXPECT_EQ(RawTable(id).bytes(0), entry_bytes(other));
    EXPECT_EQ(RawTable(id).bytes(1), entry_bytes({.name = "wlan", .level = 6, .dest = 5}));
    EXPECT_FALSE(file_exists("/tmp/ipc_used"));
}

TEST_F(Registration, ReplacesATableWithTheId0) {
    ASSERT_EQ(shmget(raw_table_key(), raw_table_size, IPC_CREAT | 0777), 0);
    RawTable(0).set(0, {.name = "dhcpd"});
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_GT(raw_table_id(), 0);
    EXPECT_EQ(segment_size(0), 0U);
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.name = "wlan", .level = 6, .dest = 5}));
    EXPECT_EQ(read_file("/tmp/ipc_used"), key_text());
}

TEST_F(Registration, AsksForTheModulesSettings) {
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_THAT(requests(), ElementsAre("/sys/log/wlan/loglevel", "/sys/log/wlan/logdest"));
}

TEST_F(Registration, PrefersTheTreesSettings) {
    struct {
        const char *level;
        const char *dest;
        std::int32_t stored_level;
        std::uint8_t stored_dest;
    } const rows[] = {{"3", "1", 3, 1},     {"0", "0", 7, 5},      {"3", "0", 3, 5},
                      {"0", "2", 7, 2},     {"", "", 7, 5},        {"-1", "256", -1, 0},
                      {"12", "517", 12, 5}, {"no", "number", 7, 5}};
    for (const auto &row : rows) {
        daemon.once(1, 1, answer(row.level));
        daemon.once(1, 1, answer(row.dest));
        EXPECT_EQ(zan_log_init("wlan", 7, 5), 1);
        EXPECT_EQ(RawTable().bytes(0),
                  entry_bytes({.name = "wlan", .level = row.stored_level, .dest = row.stored_dest}))
            << row.level << " " << row.dest;
    }
}

TEST_F(Registration, KeepsTheModulesSettingsWithoutADaemon) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_log_init("wlan", 7, 261), 1);
    EXPECT_THAT(out.stop(), testing::HasSubstr("cfg_getint failed for /sys/log/wlan/loglevel\n"));
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.name = "wlan", .level = 7, .dest = 5}));
}

TEST_F(Registration, CanBeRepeated) {
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(zan_log_init("dhcpd", 6, 5), 1);
    EXPECT_EQ(zan_log_init_cpu("wlan", 2, 3, 9), 1);
    const RawTable table;
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan", .level = 2, .dest = 3, .cpu = 9}));
    EXPECT_EQ(table.bytes(1), entry_bytes({.name = "dhcpd", .level = 6, .dest = 5}));
    EXPECT_EQ(table.bytes(2), zeros(raw_entry_size));
}

// ...and then does not find the entry it has made.
TEST_F(Registration, CutsLongNames) {
    const std::string longest(31, 'n');
    EXPECT_EQ(zan_log_init(longest.c_str(), 6, 5), 1);
    for (int again = 0; again < 2; ++again) {
        StdoutCapture out;
        EXPECT_EQ(zan_log_init((longest + "and more").c_str(), 6, 5), 1);
        EXPECT_EQ(out.stop(), "");
    }
    const RawTable table;
    for (int entry = 0; entry < 3; ++entry)
        EXPECT_EQ(table.bytes(entry), entry_bytes({.name = longest, .level = 6, .dest = 5}));
    EXPECT_EQ(table.bytes(3), zeros(raw_entry_size));
    EXPECT_EQ(zan_get_log_level((longest + "n").c_str()), nullptr);
}

TEST_F(Registration, LeavesNothingOfTheNameBefore) {
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    RawTable().set(1, {.name = "something longer", .level = 1, .dest = 1, .in_use = 0, .cpu = 1});
    EXPECT_EQ(zan_log_init("dhcpd", 6, 5), 1);
    EXPECT_EQ(RawTable().bytes(1), entry_bytes({.name = "dhcpd", .level = 6, .dest = 5}));
}

TEST_F(Registration, TakesTheFirstFreeEntryOrTheFirstOfTheName) {
    EXPECT_EQ(zan_log_init("a", 6, 5), 1);
    RawTable table;
    table.set(1, {.name = "b", .in_use = 7}); // taken all the same
    table.set(2, {.name = "c", .in_use = 0});
    table.set(3, {.name = "d"});
    EXPECT_EQ(zan_log_init("b", 6, 5), 1);
    EXPECT_EQ(table.bytes(1), entry_bytes({.name = "b", .level = 6, .dest = 5}));
    EXPECT_EQ(zan_log_init("d", 6, 5), 1);
    EXPECT_EQ(table.bytes(2), entry_bytes({.name = "d", .level = 6, .dest = 5}));
    EXPECT_EQ(table.bytes(3), entry_bytes({.name = "d"}));
}

TEST_F(Registration, OfAnEmptyNameTakesOneEntry) {
    EXPECT_EQ(zan_log_init("", 6, 5), 1);
    EXPECT_EQ(zan_log_init("", 4, 5), 1);
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.level = 4, .dest = 5}));
    EXPECT_EQ(RawTable().bytes(1), zeros(raw_entry_size));
}

TEST_F(Registration, OfTheModuleNumber65DoesNothing) {
    for (int n = 0; n < raw_entries; ++n)
        ASSERT_EQ(zan_log_init(("module" + std::to_string(n)).c_str(), 6, 5), 1);
    const std::string full = RawTable().bytes();
    daemon.forget_records();
    StdoutCapture out;
    EXPECT_EQ(zan_log_init_cpu("module64", 6, 5, 1), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(RawTable().bytes(), full);
    EXPECT_EQ(zan_get_log_level("module64"), nullptr);
    EXPECT_EQ(zan_log("module64", 0, "lost"), 0);
    // The process still logs as the last that could register.
    EXPECT_EQ(zan_log(nullptr, 7, "filtered out"), 1);
    EXPECT_EQ(zan_log_init("module63", 2, 5), 1);
    EXPECT_EQ(RawTable().bytes(63), entry_bytes({.name = "module63", .level = 2, .dest = 5}));
}

TEST_F(Registration, ThatFirstMeetsAFullTableLeavesTheProcessWithoutAModule) {
    RawTable table(create_raw_table());
    for (int n = 0; n < raw_entries; ++n)
        table.set(n, {.name = "module" + std::to_string(n), .level = 6, .dest = 5});
    const std::string full = table.bytes();
    EXPECT_EQ(zan_log_init("late", 6, 5), 1);
    EXPECT_EQ(table.bytes(), full);
    EXPECT_EQ(zan_log(nullptr, 0, "lost"), 0);
    EXPECT_EQ(zan_log("late", 0, "lost"), 0);
    // The others are there all the same.
    EXPECT_NE(zan_get_log_level("module63"), nullptr);
    EXPECT_EQ(zan_log("module63", 7, "filtered out"), 1);
}

// Others register while the daemon takes its time, and must not take the same entry.
TEST_F(Registration, TakesItsEntryBeforeItAsksTheDaemon) {
    daemon.once(1, 1, {{.payload = "3", .held = true}});
    daemon.once(1, 1, {{.payload = "2", .held = true}});
    const Worker registration([] { EXPECT_EQ(zan_log_init("wlan", 6, 5), 1); });
    ASSERT_EQ(daemon.wait_for_records(1).size(), 1U);
    const RawTable table;
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "", .level = 0, .dest = 0, .in_use = 1}));
    daemon.release();
    ASSERT_EQ(daemon.wait_for_records(2).size(), 2U);
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "", .level = 3, .dest = 0, .in_use = 1}));
    daemon.release();
    ASSERT_TRUE(registration.wait_until_done());
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan", .level = 3, .dest = 2}));
}

TEST_F(Registration, WithCpuFlag1IsAnnounced) {
    EXPECT_EQ(zan_log_init_cpu("wlan", 6, 5, 1), 1);
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.name = "wlan", .level = 6, .dest = 5, .cpu = 1}));
    const std::vector<SizedRecord> records = daemon.wait_for_records(3);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_TRUE(announces(records[2], "wlan"));
    cfg_del("/marker"); // behind anything else
    EXPECT_EQ(daemon.records().size(), 4U);
}

TEST_F(Registration, IsAnnouncedUnderTheNameOfTheEntry) {
    EXPECT_EQ(zan_log_init_cpu(std::string(40, 'n').c_str(), 6, 5, 1), 1);
    const std::vector<SizedRecord> records = daemon.wait_for_records(3);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_TRUE(announces(records[2], std::string(31, 'n')));
}

TEST_F(Registration, WithAnotherCpuFlagIsNotAnnounced) {
    for (const int cpu : {0, 2, -1, 257}) {
        EXPECT_EQ(zan_log_init_cpu("wlan", 6, 5, cpu), 1);
        EXPECT_EQ(RawTable().bytes(0),
                  entry_bytes({.name = "wlan", .level = 6, .dest = 5, .cpu = cpu}));
    }
    EXPECT_EQ(__zan_log_init("wlan", 6, 5, 2), 1);
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_EQ(RawTable().bytes(0), entry_bytes({.name = "wlan", .level = 6, .dest = 5}));
    cfg_del("/marker"); // behind anything else
    EXPECT_EQ(requests().size(), 6U * 2 + 1);
}

TEST_F(Registration, OfANullNameDoesNothing) {
    EXPECT_EQ(zan_log_init(nullptr, 6, 5), 0);
    EXPECT_EQ(raw_table_id(), -1);
}

TEST_F(Registration, IsSeenByOtherProcesses) {
    EXPECT_EQ(zan_log_init("parent", 6, 5), 1);
    const pid_t child = fork();
    if (child == 0) {
        const bool seen =
            zan_log_init("child", 3, 4) == 1 && zan_get_log_level("parent")->level == 6;
        zan_get_log_level("parent")->level = 2;
        _exit(seen ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ASSERT_NE(zan_get_log_level("child"), nullptr);
    EXPECT_EQ(zan_get_log_level("child")->level, 3);
    EXPECT_EQ(zan_get_log_level("child")->dest, 4);
    EXPECT_EQ(zan_log("parent", 3, "filtered out by the child"), 1);
    EXPECT_EQ(zan_get_log_level("parent")->level, 2);
}

// ---- without a table

class WithoutATable : public Registration {
protected:
    static void set_limit(const char *name, const char *value) {
        write_file(std::string("/proc/sys/kernel/") + name, value);
    }

    void expect_failure(const std::string &reason) {
        testing::internal::CaptureStderr();
        StdoutCapture out;
        EXPECT_EQ(zan_log_init_cpu("wlan", 6, 5, 1), 0);
        EXPECT_EQ(out.stop(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "shmget: " + reason + "\n");
        EXPECT_THAT(requests(), IsEmpty());
        EXPECT_EQ(zan_get_log_level("wlan"), nullptr);
        EXPECT_EQ(zan_log("wlan", 0, "lost"), 0);
        EXPECT_EQ(zan_log(nullptr, 0, "lost"), 0);
    }
};

TEST_F(WithoutATable, NothingIsRegistered) {
    set_limit("shmmni", "0");
    expect_failure("No space left on device");
    EXPECT_EQ(read_file("/tmp/ipc_used"), key_text());
    set_limit("shmmni", "4096");
    EXPECT_EQ(zan_log_init("wlan", 6, 5), 1);
    EXPECT_NE(zan_get_log_level("wlan"), nullptr);
}

TEST_F(WithoutATable, TheReasonIsTheKernels) {
    set_limit("shmmax", "2815");
    ASSERT_EQ(std::system("mkdir /tmp/ipc_used"), 0); // an error of another kind
    expect_failure("Invalid argument");
}

// Somebody else's segment under the key.
TEST_F(WithoutATable, ATooSmallOneIsNone) {
    ASSERT_GE(shmget(raw_table_key(), raw_table_size - 1, IPC_CREAT | 0777), 0);
    expect_failure("Invalid argument");
}

} // namespace
} // namespace zan::test
