// SPDX-License-Identifier: MIT
//
// Logs: the table of all modules in shared memory, their settings in the tree, and the
// files, each as it really is.
#include "zanctl.h"

#include "log/outputs.h"
#include "log/raw_table.h"
#include "support/sandbox.h"

#include <zan.h>

#include <sys/shm.h>

#include <csignal>
#include <cstdio>
#include <fstream>

namespace zan::test {
namespace {

using testing::HasSubstr;

class ZanctlLog : public ZanctlTest {
protected:
    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }
};

// ---- list

TEST_F(ZanctlLog, ListsEveryModule) {
    RawTable table(create_raw_table());
    table.set(0, {.name = "dhcpd", .level = 5, .dest = 3});
    table.set(1, {.name = "a_longer_name", .level = 0, .dest = 4, .cpu = 1});
    table.set(2, {.name = "x", .level = -3, .dest = 0});
    const Ended plain = run({"log", "list"});
    EXPECT_EQ(plain.status, exit_done);
    EXPECT_EQ(plain.error, "");
    EXPECT_EQ(plain.output, "MODULE         LEVEL        DEST\n"
                            "dhcpd          5 notice     3 syslog\n"
                            "a_longer_name  0 emergency  4 all\n"
                            "x              -3           0 off\n");
    const Ended json = run({"log", "list", "--json"});
    EXPECT_EQ(
        json.output,
        R"({"module":"dhcpd","level":5,"level_name":"notice","dest":3,"dest_name":"syslog","cpu":0}
{"module":"a_longer_name","level":0,"level_name":"emergency","dest":4,"dest_name":"all","cpu":1}
{"module":"x","level":-3,"level_name":"","dest":0,"dest_name":"off","cpu":0}
)");
    // It neither asks the daemon nor takes an entry.
    EXPECT_TRUE(daemon.records().empty());
    EXPECT_EQ(table.bytes(3), std::string(raw_entry_size, '\0'));
}

TEST_F(ZanctlLog, NamesEveryLevelAndDestination) {
    RawTable table(create_raw_table());
    const char *const levels[] = {"0 emergency", "1 alert",  "2 critical", "3 error",
                                  "4 warning",   "5 notice", "6 info",     "7 verbose"};
    const char *const dests[] = {"0 off", "1 console", "2 terminals", "3 syslog",
                                 "4 all", "5 file",    "6 off",       "255 off"};
    std::string expected;
    for (int i = 0; i < 8; ++i) {
        const std::string name = "m" + std::to_string(i);
        table.set(i,
                  {.name = name, .level = i, .dest = static_cast<std::uint8_t>(i < 7 ? i : 255)});
        const std::string level = levels[i];
        expected += name + "      " + level + std::string(13 - level.size(), ' ') + dests[i] + "\n";
    }
    EXPECT_EQ(run({"log", "list"}).output, "MODULE  LEVEL        DEST\n" + expected);
}

TEST_F(ZanctlLog, ListsUnusualEntries) {
    RawTable table(create_raw_table());
    table.set(0, {.name = std::string(32, 'n'), .level = 2147483647, .dest = 1});
    table.set(1, {.name = "a\033[2J\nb", .in_use = 255});
    table.set(63, {.name = "last", .level = 6, .dest = 5});
    EXPECT_EQ(run({"log", "list"}).output, "MODULE                            LEVEL        DEST\n" +
                                               std::string(32, 'n') +
                                               "  2147483647   1 console\n"
                                               "a\\x1B[2J\\x0Ab                     0 emergency  0 "
                                               "off\n"
                                               "last                              6 info       5 "
                                               "file\n");
}

TEST_F(ZanctlLog, ListsNothingWithoutATable) {
    const Ended none = run({"log", "list"});
    EXPECT_EQ(none.status, exit_done);
    EXPECT_EQ(none.output, "MODULE  LEVEL  DEST\n");
    EXPECT_EQ(none.error, "zanctl: no module has registered for logging\n");
    // The modules do not take a table with this id, either.
    ASSERT_EQ(shmget(raw_table_key(), raw_table_size, IPC_CREAT | 0777), 0);
    EXPECT_EQ(run({"log", "list"}).error, "zanctl: no module has registered for logging\n");
    EXPECT_EQ(run({"log", "list", "--json"}).output, "");
}

TEST_F(ZanctlLog, ReportsATableOfTheWrongSize) {
    ASSERT_EQ(shmget(raw_table_key(), 100, IPC_CREAT | 0777), 0);
    const Ended ended = run({"log", "list"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: cannot attach the log table: Invalid argument\n");
}

// ---- level and dest

TEST_F(ZanctlLog, SetsTheLevelInTheTreeAndTheTable) {
    struct {
        std::string text;
        int level;
        std::string name;
    } const rows[] = {{"3", 3, "error"},   {"verbose", 7, "verbose"}, {"Notice", 5, "notice"},
                      {"info", 6, "info"}, {"Infomation", 6, "info"}, {"ALERT", 1, "alert"}};
    RawTable table(create_raw_table());
    for (const auto &row : rows) {
        table.set(0, {.name = "dhcpd", .level = 2, .dest = 3});
        table.set(1, {.name = "wlan", .level = 2, .dest = 3, .cpu = 1});
        daemon.forget_records();
        const Ended ended = run({"log", "level", "wlan", row.text, "--json"});
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.error, "");
        EXPECT_EQ(ended.output, R"({"path":"/sys/log/wlan/loglevel","value":)" +
                                    std::to_string(row.level) + R"(,"name":")" + row.name +
                                    "\",\"live\":true}\n");
        EXPECT_TRUE(same_record(only_request(),
                                request(class_cfg, cmd_set, "ZAN_CFG",
                                        "0/sys/log/wlan/loglevel " + std::to_string(row.level))));
        EXPECT_EQ(table.bytes(0), entry_bytes({.name = "dhcpd", .level = 2, .dest = 3}));
        EXPECT_EQ(table.bytes(1),
                  entry_bytes({.name = "wlan", .level = row.level, .dest = 3, .cpu = 1}));
    }
    EXPECT_EQ(run({"log", "level", "wlan", "4"}).output, "");
}

TEST_F(ZanctlLog, SetsTheDestinationInTheTreeAndTheTable) {
    struct {
        std::string text;
        std::uint8_t dest;
    } const rows[] = {{"1", 1},   {"terminals", 2}, {"Syslog", 3},
                      {"ALL", 4}, {"file", 5},      {"off", 255}};
    RawTable table(create_raw_table());
    for (const auto &row : rows) {
        table.set(0, {.name = "wlan", .level = 2, .dest = 9});
        daemon.forget_records();
        const Ended ended = run({"log", "dest", "wlan", row.text});
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output + ended.error, "");
        EXPECT_TRUE(same_record(only_request(),
                                request(class_cfg, cmd_set, "ZAN_CFG",
                                        "0/sys/log/wlan/logdest " + std::to_string(row.dest))));
        EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan", .level = 2, .dest = row.dest}));
    }
}

TEST_F(ZanctlLog, KeepsTheTableWhenTheDaemonRefuses) {
    RawTable table(create_raw_table());
    table.set(0, {.name = "wlan", .level = 2, .dest = 3});
    daemon.on(class_cfg, cmd_set, negative(-5, "no such node"));
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"log", "level", "wlan", "7"}, {"log", "dest", "wlan", "off"}}) {
        const Ended ended = run(command);
        EXPECT_EQ(ended.status, exit_refused);
        EXPECT_EQ(ended.error, "zanctl: /sys/log/wlan/log" + command[1] + ": no such node (-5)\n");
    }
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan", .level = 2, .dest = 3}));
}

TEST_F(ZanctlLog, SetsTheTreeForAModuleThatIsNotRegistered) {
    const std::string note =
        "zanctl: wlan has not registered for logging: only the configuration was changed\n";
    const Ended without_table = run({"log", "level", "wlan", "7", "--json"});
    EXPECT_EQ(without_table.status, exit_done);
    EXPECT_EQ(without_table.error, note);
    EXPECT_THAT(without_table.output, HasSubstr("\"live\":false"));
    RawTable table(create_raw_table());
    table.set(0, {.name = "wlan", .in_use = 0});
    EXPECT_EQ(run({"log", "dest", "wlan", "file"}).error, note);
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan", .in_use = 0}));
}

TEST_F(ZanctlLog, WarnsThatTheTreeCannotKeepLevel0) {
    RawTable table(create_raw_table());
    table.set(0, {.name = "wlan", .level = 2});
    const Ended ended = run({"log", "level", "wlan", "emergency"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.error,
              "zanctl: 0 in the configuration means \"not set\": wlan keeps the setting only until "
              "it restarts\n");
    EXPECT_EQ(table.bytes(0), entry_bytes({.name = "wlan"}));
}

// ---- module, daemon and zanctl together

TEST(LogOfAModule, FollowsZanctlAndTheTree) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    const LogOutputs outputs;
    Program zansim({ZAN_TEST_ZANSIM, ZAN_TEST_TREE});
    ASSERT_TRUE(zansim.read_until("zansim: ready"));
    ASSERT_GE(zan_register("meshd", 0), 0);
    ASSERT_EQ(zan_log_init("meshd", 1, 1), 1);
    EXPECT_EQ(run_zanctl({"log", "list"}).output, "MODULE  LEVEL   DEST\n"
                                                  "meshd   6 info  5 file\n");
    EXPECT_EQ(zan_log("meshd", 7, "filtered out"), 1);
    EXPECT_EQ(run_zanctl({"log", "level", "meshd", "verbose"}).status, exit_done);
    EXPECT_EQ(zan_log("meshd", 7, "shown"), 1);
    EXPECT_THAT(run_zanctl({"log", "tail", "meshd", "--count", "1"}).output,
                testing::MatchesRegex("\\(7\\)\\[Verbose\\]..:..:..:meshd\tshown \n"));
    EXPECT_EQ(run_zanctl({"log", "dest", "meshd", "off"}).status, exit_done);
    EXPECT_EQ(zan_log("meshd", 0, "lost"), 1);
    // As after a start of the module.
    ASSERT_EQ(zan_log_init("meshd", 1, 1), 1);
    EXPECT_EQ(zan_get_log_level("meshd")->level, 7);
    EXPECT_EQ(zan_get_log_level("meshd")->dest, 255);
    EXPECT_EQ(zan_unregister("meshd", 0), 0);
    zansim.signal(SIGTERM);
    EXPECT_EQ(zansim.wait(), 0);
}

// ---- tail

constexpr const char *log_file = "/var/log/wlan";

void append(const std::string &text) {
    std::ofstream(log_file, std::ios::app) << text;
}

class ZanctlLogTail : public ZanctlLog {
protected:
    // Starts it and waits until it follows, or waits for, the file.
    static std::unique_ptr<Program> start(const std::vector<std::string> &options = {}) {
        std::vector<std::string> arguments = {"log", "tail", "wlan"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto program = std::make_unique<Program>(zanctl_command(arguments));
        EXPECT_TRUE(program->read_error_until(" /var/log/wlan\n"));
        return program;
    }
};

TEST_F(ZanctlLogTail, PrintsLinesAsTheyArriveUntilInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        append("(3)[Error]12:04:59:wlan\tbefore \n");
        const auto program = start();
        EXPECT_EQ(program->error(), "zanctl: following /var/log/wlan\n");
        EXPECT_TRUE(program->read_until("before \n"));
        append("(4)[Warning]12:05:00:wlan\tafter");
        append(" all \nnext\n");
        EXPECT_TRUE(program->read_until("next\n"));
        program->signal(signal);
        EXPECT_EQ(program->wait(), exit_done);
        EXPECT_EQ(program->output(), "(3)[Error]12:04:59:wlan\tbefore \n"
                                     "(4)[Warning]12:05:00:wlan\tafter all \nnext\n");
        std::remove(log_file);
    }
    EXPECT_TRUE(daemon.records().empty());
}

TEST_F(ZanctlLogTail, StartsWithTheLastLines) {
    std::string last;
    for (int line = 0; line < 30000; ++line) {
        const std::string text = "line " + std::to_string(line) + "\n";
        append(text);
        if (line >= 29990)
            last += text;
    }
    append("unfinished");
    const auto ten = start({"--count", "11"});
    append(" no more\n");
    EXPECT_EQ(ten->wait(), exit_done);
    EXPECT_EQ(ten->output(), last + "unfinished no more\n");
    const auto none = start({"--lines", "0", "--count", "1"});
    append("new\n");
    EXPECT_EQ(none->wait(), exit_done);
    EXPECT_EQ(none->output(), "new\n");
    const auto all = start({"--lines", "99999", "--count", "30002"});
    EXPECT_EQ(all->wait(), exit_done);
    EXPECT_EQ(all->output().substr(0, 7), "line 0\n");
}

TEST_F(ZanctlLogTail, WaitsForAFileThatDoesNotExistYet) {
    const auto program = start({"--lines", "0"});
    EXPECT_EQ(program->error(), "zanctl: waiting for /var/log/wlan\n");
    append("first\n");
    EXPECT_TRUE(program->read_until("first\n"));
    program->signal(SIGINT);
    EXPECT_EQ(program->wait(), exit_done);
}

TEST_F(ZanctlLogTail, FollowsThroughARotation) {
    append("old\n");
    const auto program = start();
    EXPECT_TRUE(program->read_until("old\n"));
    // A module that has the file open still writes to it.
    std::ofstream still_open(log_file, std::ios::app);
    ASSERT_EQ(std::rename(log_file, "/var/log/wlan.1"), 0);
    still_open << "late\n" << std::flush;
    EXPECT_TRUE(program->read_until("late\n"));
    still_open << "very late, unfinished" << std::flush;
    append("new\n");
    EXPECT_TRUE(program->read_until("new\n"));
    EXPECT_EQ(program->output(), "old\nlate\nvery late, unfinished\nnew\n");
}

TEST_F(ZanctlLogTail, FollowsThroughATruncation) {
    append("old and rather long\nunfinished");
    const auto program = start();
    EXPECT_TRUE(program->read_until("long\n"));
    write_file(log_file, "");
    append("new\n");
    EXPECT_TRUE(program->read_until("new\n"));
    std::remove(log_file);
    append("newer\n");
    EXPECT_TRUE(program->read_until("newer\n"));
    EXPECT_EQ(program->output(), "old and rather long\nnew\nnewer\n");
}

TEST_F(ZanctlLogTail, EscapesControlCharacters) {
    append("(3)[Error]12:04:59:wlan\ta\033[2J\tb\\c \n");
    EXPECT_EQ(run({"log", "tail", "wlan", "--count", "1"}).output,
              "(3)[Error]12:04:59:wlan\ta\\x1B[2J\\x09b\\x5Cc \n");
    EXPECT_EQ(run({"log", "tail", "wlan", "--count", "1", "--json"}).output,
              R"({"module":"wlan","line":"(3)[Error]12:04:59:wlan\ta\u001b[2J\tb\\c "})"
              "\n");
}

TEST_F(ZanctlLogTail, ReportsAFileThatCannotBeRead) {
    ASSERT_EQ(std::system("mkdir /var/log/wlan"), 0);
    const Ended ended = run({"log", "tail", "wlan"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: cannot read /var/log/wlan: Is a directory\n");
}

} // namespace
} // namespace zan::test
