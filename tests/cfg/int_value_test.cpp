// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"

#include <climits>

namespace zan::test {
namespace {

class Int : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_get, replies); }

    // The lines of a request that finds no daemon any more.
    std::string failed_send(const std::string &function, const std::string &path) const {
        return "zan_msg_send qid=" + std::to_string(daemon.request_queue()) +
               " ERROR:Invalid argument\n" + function + ":zan_msg_send fail!\n" + function +
               ": path=" + path + "\n" + function + ": pid=" + std::to_string(getpid()) + "\n";
    }
};

using GetInt = Int;
using SetInt = Int;
using GetCount = Int;

struct Reading {
    const char *text;
    int number;
};
constexpr Reading readings[] = {
    {"0", 0},
    {"42", 42},
    {"-17", -17},
    {"+5", 5},
    {" \t8", 8},
    {"12abc", 12},
    {"abc", 0},
    {"", 0},
    {"0x10", 0},
    {"2147483647", INT_MAX},
    {"-2147483648", INT_MIN},
    // The same on a 64-bit machine as on the target.
    {"2147483648", INT_MAX},
    {"-99999999999", INT_MIN},
    {"99999999999999999999", INT_MAX},
};

// ---- cfg_getint ------------------------------------------------------------

TEST_F(GetInt, AsksForTheFormattedPath) {
    leave_traces();
    answers(answer("80"));
    EXPECT_EQ(cfg_getint("/sys/user:%d/%s", 1, "port"), 80);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user:1/port")));
}

TEST_F(GetInt, ReadsTheNumberThatTheAnswerBeginsWith) {
    StdoutCapture output;
    for (const Reading &row : readings) {
        SCOPED_TRACE(row.text);
        answers(answer(row.text));
        EXPECT_EQ(cfg_getint("/a"), row.number);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(GetInt, IsZeroAndSaysSoWhenTheNodeIsMissing) {
    StdoutCapture output;
    answers(negative(-9002, "55"));
    EXPECT_EQ(cfg_getint("/no/such:%d", 3), 0);
    EXPECT_EQ(output.stop(), "cfg_getint failed for /no/such:3\n");
}

TEST_F(GetInt, IsZeroAndSaysSoWhenTheDaemonIsGone) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_getint("/a"), 0);
    EXPECT_EQ(output.stop(), failed_send("cfg_getstr", "/a") + "cfg_getint failed for /a\n");
}

TEST_F(GetInt, IsZeroForAHeaderOnlyAnswer) {
    leave_traces();
    answers(answer("99"));
    EXPECT_EQ(cfg_getint("/a"), 99);
    answers({Reply{}});
    StdoutCapture output;
    EXPECT_EQ(cfg_getint("/a"), 0);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(GetInt, ReadsTheFirst255CharactersOfAnAnswer) {
    StdoutCapture output;
    const std::string zeros(254, '0');
    answers(answer(zeros + "78"));
    EXPECT_EQ(cfg_getint("/a"), 7);
    EXPECT_EQ(output.stop(), overflow_warning(zeros + "7"));
}

TEST_F(GetInt, CutsThePathAt1023Characters) {
    EXPECT_EQ(cfg_getint("%s", path_of(2000).c_str()), 0);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, path_of(1023))));
}

TEST_F(GetInt, TakesThePathForAFormatOnceMore) {
    StdoutCapture output;
    answers(negative(-1));
    EXPECT_EQ(cfg_getint("/a%%%%b/%s", "c%%d"), 0);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/a%b/c%d")));
    EXPECT_EQ(output.stop(), "cfg_getint failed for /a%%b/c%%d\n");
}

// There are no arguments for a conversion in the path itself: it stays.
TEST_F(GetInt, ReadsNoArgumentsThatNobodyGave) {
    EXPECT_EQ(cfg_getint("%s", "/a%s/%n/%d%"), 0);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/a%s/%n/%d%")));
}

TEST_F(GetInt, IsZeroForNullAndSendsNothing) {
    EXPECT_EQ(cfg_getint(nullptr), 0);
    EXPECT_TRUE(sent_nothing());
}

// ---- cfg_setint ------------------------------------------------------------

TEST_F(SetInt, SendsTheNumberAsText) {
    leave_traces();
    const struct {
        int number;
        const char *text;
    } rows[] = {{5, "5"}, {0, "0"}, {-1, "-1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(cfg_setint(row.number, "/sys/user:%d/port", 2), 1);
        EXPECT_TRUE(
            same_record(sent(), request(cmd_set, std::string("0/sys/user:2/port ") + row.text)));
    }
}

TEST_F(SetInt, PassesTheRefusalOn) {
    daemon.once(class_cfg, cmd_set, negative(-9004, "read only"));
    EXPECT_EQ(cfg_setint(1, "/a"), -9004);
}

TEST_F(SetInt, ReportsAFailedSendAsCfgSetstr) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_setint(1, "/a"), -2003);
    EXPECT_EQ(output.stop(), failed_send("cfg_setstr", "/a"));
}

TEST_F(SetInt, CutsThePathAt1023Characters) {
    EXPECT_EQ(cfg_setint(-2147483647, "%s", path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set, "0" + path_of(1023) + " -2147483647")));
}

TEST_F(SetInt, TakesThePathForAFormatOnceMore) {
    EXPECT_EQ(cfg_setint(1, "/a%%%%b/%s", "%d"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set, "0/a%b/%d 1")));
}

TEST_F(SetInt, RefusesNullAndSendsNothing) {
    EXPECT_EQ(cfg_setint(1, nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

// ---- cfg_getcount ----------------------------------------------------------

TEST_F(GetCount, AsksForThePathWithANumberSign) {
    leave_traces();
    answers(answer("4"));
    EXPECT_EQ(cfg_getcount("/sys/%s", "user"), 4);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user#")));
}

TEST_F(GetCount, ReadsTheNumberThatTheAnswerBeginsWith) {
    for (const Reading &row : readings) {
        SCOPED_TRACE(row.text);
        answers(answer(row.text));
        EXPECT_EQ(cfg_getcount("/a"), row.number);
    }
}

TEST_F(GetCount, ReadsTheFirst255CharactersOfAnAnswer) {
    StdoutCapture output;
    const std::string zeros(254, '0');
    answers(answer(zeros + "78"));
    EXPECT_EQ(cfg_getcount("/a"), 7);
    EXPECT_EQ(output.stop(), overflow_warning(zeros + "7"));
}

TEST_F(GetCount, CutsThePathAt255CharactersBeforeTheNumberSign) {
    const std::string path = path_of(1100);
    for (const std::size_t length : {254U, 255U, 256U, 257U, 1100U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(cfg_getcount("%s", path.substr(0, length).c_str()), 0);
        EXPECT_TRUE(same_record(
            sent(), request(cmd_get, path.substr(0, std::min<std::size_t>(length, 255)) + "#")));
    }
}

TEST_F(GetCount, IsSilentlyZeroWhenTheDaemonRefuses) {
    StdoutCapture output;
    answers(negative(-9002, "55"));
    EXPECT_EQ(cfg_getcount("/a"), 0);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(GetCount, AddsNoLineOfItsOwnWhenTheDaemonIsGone) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_getcount("/a"), 0);
    EXPECT_EQ(output.stop(), failed_send("cfg_getstr", "/a#"));
}

TEST_F(GetCount, TakesThePathForAFormatOnceMore) {
    EXPECT_EQ(cfg_getcount("/a%%%%b"), 0);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/a%b#")));
}

TEST_F(GetCount, IsZeroForNullAndSendsNothing) {
    EXPECT_EQ(cfg_getcount(nullptr), 0);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
