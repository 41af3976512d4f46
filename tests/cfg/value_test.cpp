// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/sandbox.h"

#include <climits>
#include <cstring>
#include <memory>

namespace zan::test {
namespace {

// cfg_getstr and cfg_getarray differ in their command only.
struct Getter {
    const char *name;
    int (*get)(char *value, int size, const char *fmt, ...);
    int cmd;
};

std::ostream &operator<<(std::ostream &out, const Getter &getter) {
    return out << getter.name;
}

class Get : public ConfigTest, public testing::WithParamInterface<Getter> {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, GetParam().cmd, replies); }
    int get(char *buffer, int size) { return GetParam().get(buffer, size, "/a/b"); }

    char value[64] = "before";
};
INSTANTIATE_TEST_SUITE_P(Value, Get,
                         testing::Values(Getter{"cfg_getstr", cfg_getstr, cmd_get},
                                         Getter{"cfg_getarray", cfg_getarray, cmd_array}),
                         [](const auto &getter) { return getter.param.name; });

// ---- what is sent ----------------------------------------------------------

TEST_P(Get, SendsTheFormattedPath) {
    leave_traces();
    EXPECT_EQ(GetParam().get(value, sizeof value, "/sys/user:%d/%s", 3, "name"), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(GetParam().cmd, "/sys/user:3/name")));
    EXPECT_EQ(record.msgsz, 116U);
}

TEST_P(Get, SendsAPathWithoutConversionsAsItIs) {
    EXPECT_EQ(GetParam().get(value, sizeof value, "/InternetGatewayDevice/Enable"), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "/InternetGatewayDevice/Enable")));
    EXPECT_EQ(GetParam().get(value, sizeof value, "100%%/%s", "%d"), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "100%/%d")));
}

TEST_P(Get, SendsAnEmptyPath) {
    EXPECT_EQ(GetParam().get(value, sizeof value, "%s", ""), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "")));
}

TEST_P(Get, SendsANullArgumentAsTheFormatterShowsIt) {
    const char *const null = nullptr;
    EXPECT_EQ(GetParam().get(value, sizeof value, "%s", null), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "(null)")));
    EXPECT_EQ(GetParam().get(value, sizeof value, "%s%s", null, "/a"), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "(null)/a")));
}

TEST_P(Get, CutsAPathAt1023Characters) {
    const std::string path = path_of(3000);
    for (const std::size_t length : {1023U, 1024U, 1025U, 3000U}) {
        SCOPED_TRACE(length);
        const std::string given = path.substr(0, length);
        const Fields expected = request(GetParam().cmd, path.substr(0, 1023));
        StdoutCapture output;
        EXPECT_EQ(GetParam().get(value, sizeof value, "%s", given.c_str()), 1);
        EXPECT_TRUE(same_record(sent(), expected));
        EXPECT_EQ(GetParam().get(value, sizeof value, "%s%s", "", given.c_str()), 1);
        EXPECT_TRUE(same_record(sent(), expected));
        EXPECT_EQ(GetParam().get(value, sizeof value, given.c_str()), 1);
        EXPECT_TRUE(same_record(sent(), expected));
        EXPECT_EQ(output.stop(), "");
    }
}

TEST_P(Get, SendsItsRequestWithoutABufferToo) {
    StdoutCapture output;
    answers(answer("value"));
    EXPECT_EQ(GetParam().get(nullptr, 64, "/a/b"), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "/a/b")));
    answers(negative(-7, "no such node"));
    EXPECT_EQ(GetParam().get(nullptr, 0, "/a/b"), -7);
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Get, RefusesANullPathAndSendsNothing) {
    StdoutCapture output;
    EXPECT_EQ(GetParam().get(value, sizeof value, nullptr), -1);
    EXPECT_STREQ(value, "before");
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(output.stop(), "");
}

// ---- what comes back -------------------------------------------------------

TEST_P(Get, CopiesTheAnswer) {
    StdoutCapture output;
    answers(answer("router one"));
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "router one");
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Get, CutsTheAnswerAtTheSizeAndWarns) {
    StdoutCapture output;
    answers(answer("0123456789"));
    EXPECT_EQ(get(value, 8), 1);
    EXPECT_STREQ(value, "0123456");
    EXPECT_EQ(output.stop(), overflow_warning("0123456"));
}

TEST_P(Get, CopiesAnAnswerThatJustFitsWithoutWarning) {
    StdoutCapture output;
    answers(answer("0123456"));
    EXPECT_EQ(get(value, 8), 1);
    EXPECT_STREQ(value, "0123456");
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Get, TakesASizeBelowFiveFor1024) {
    for (const int size : {3, 0, -1}) {
        SCOPED_TRACE(size);
        std::vector<char> room(1025, '~');
        StdoutCapture output;
        answers(answer(std::string(1023, 'f')));
        EXPECT_EQ(get(room.data(), size), 1);
        EXPECT_EQ(room.data(), std::string(1023, 'f'));
        EXPECT_EQ(output.so_far(), "");
        answers(answer(std::string(2000, 'l')));
        EXPECT_EQ(get(room.data(), size), 1);
        EXPECT_EQ(room.data(), std::string(1023, 'l'));
        EXPECT_EQ(room[1024], '~');
        EXPECT_EQ(output.stop(), overflow_warning(std::string(1023, 'l')));
    }
}

TEST_P(Get, TakesAHeaderOnlyAnswerForTheEmptyText) {
    leave_traces();
    answers({Reply{}});
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "");
}

TEST_P(Get, TakesTheTextOfAnyResultFromZeroUp) {
    for (const int result : {0, 1, 2, INT_MAX}) {
        SCOPED_TRACE(result);
        answers({{.result = result, .payload = "text " + std::to_string(result)}});
        EXPECT_EQ(get(value, sizeof value), 1);
        EXPECT_EQ(value, "text " + std::to_string(result));
    }
}

TEST_P(Get, LeavesTheValueWhenTheDaemonRefuses) {
    StdoutCapture output;
    for (const int result : {-1, -9002, INT_MIN}) {
        SCOPED_TRACE(result);
        answers(negative(result, "no such node"));
        EXPECT_EQ(get(value, sizeof value), result);
        EXPECT_STREQ(value, "before");
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Get, LeavesTheValueWhenTheDaemonIsGone) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(get(value, sizeof value), -2003);
    EXPECT_STREQ(value, "before");
}

TEST_P(Get, LeavesTheValueWhenTheWaitFails) {
    answers(never());
    StdoutCapture output;
    std::thread remover([&] {
        daemon.wait_for_records(1);
        remove_queue(g_msq_qid);
    });
    EXPECT_EQ(get(value, sizeof value), -1);
    remover.join();
    EXPECT_STREQ(value, "before");
}

TEST_P(Get, EndsTheTextAtANulInsideTheAnswer) {
    answers(answer(std::string("abc\0def", 7)));
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "abc");
}

// The size that arrived counts, not what the header claims.
TEST_P(Get, DoesNotBelieveTheLengthInTheHeader) {
    leave_traces();
    for (const int len : {0, 1, 35000, INT_MAX, -1, INT_MIN}) {
        SCOPED_TRACE(len);
        answers({{.payload = "abc", .len = len}});
        EXPECT_EQ(get(value, sizeof value), 1);
        EXPECT_STREQ(value, "abc");
    }
}

TEST_P(Get, TakesWhatACutHeaderLacksForZero) {
    leave_traces();
    answers({{.result = -5, .payload = "text", .msgsz = 50}});
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "");
}

TEST_P(Get, ShowsNothingOfAnEarlierAnswer) {
    answers(answer("a long answer of many characters"));
    EXPECT_EQ(get(value, sizeof value), 1);
    answers(answer("short"));
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "short");
    answers({Reply{}});
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "");
}

TEST_P(Get, ShowsNothingOfADiscardedAnswer) {
    answers({{.payload = "an answer to somebody else", .cmd = cmd_set}, {.payload = "mine"}});
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "mine");
}

// An answer without payload keeps length and text of the record before it.
TEST_P(Get, KeepsTheTextOfADiscardedAnswerWhenItsOwnIsHeaderOnly) {
    answers({{.payload = "somebody else's", .cmd = cmd_set}, {}});
    EXPECT_EQ(get(value, sizeof value), 1);
    EXPECT_STREQ(value, "somebody else's");
}

// ---- long values -----------------------------------------------------------

TEST_P(Get, CopiesAValueOf32Kilobytes) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    std::vector<char> room(32769, '~');
    std::string text = path_of(32768);
    answers(answer(text));
    EXPECT_EQ(get(room.data(), 32769), 1);
    EXPECT_EQ(room.data(), text);

    // And nothing of it afterwards.
    answers(answer("x"));
    EXPECT_EQ(get(room.data(), 32769), 1);
    EXPECT_STREQ(room.data(), "x");
}

TEST_P(Get, EndsAnAnswerThatFillsTheWholeRecord) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    std::vector<char> room(40000, '~');
    answers(answer(std::string(35000, 'w')));
    EXPECT_EQ(get(room.data(), 40000), 1);
    EXPECT_EQ(room.data(), std::string(35000, 'w'));
}

TEST_P(Get, RefusesAnAnswerLongerThanARecord) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    answers({{.payload = std::string(35000, 'w'), .msgsz = 35101}});
    StdoutCapture output;
    EXPECT_EQ(get(value, sizeof value), -1);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(output.stop(),
              "zan_msg_recv qid=" + std::to_string(g_msq_qid) + " ERROR:Argument list too long\n");
}

// ---- cfg_setstr ------------------------------------------------------------

using Set = ConfigTest;

TEST_F(Set, SendsAZeroThePathABlankAndTheValue) {
    leave_traces();
    EXPECT_EQ(cfg_setstr("a b", "/x"), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_set, "0/x a b")));
    EXPECT_EQ(record.record.len(), 7);
    EXPECT_EQ(record.msgsz, 107U);
}

TEST_F(Set, FormatsThePathButNotTheValue) {
    EXPECT_EQ(cfg_setstr("100%d%n", "/sys/%s:%d", "user", 2), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set, "0/sys/user:2 100%d%n")));
}

TEST_F(Set, SendsAnEmptyValue) {
    EXPECT_EQ(cfg_setstr("", "/x"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set, "0/x ")));
}

TEST_F(Set, CutsThePathAt1023Characters) {
    EXPECT_EQ(cfg_setstr("v", "%s", path_of(1030).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set, "0" + path_of(1023) + " v")));
}

TEST_F(Set, CutsThePayloadAt2046Characters) {
    const std::string path = path_of(1023);
    StdoutCapture output;
    for (const std::size_t length : {1020U, 1021U}) {
        SCOPED_TRACE(length);
        const std::string value(length, 'v');
        EXPECT_EQ(cfg_setstr(value.c_str(), "%s", path.c_str()), 1);
        EXPECT_TRUE(same_record(sent(), request(cmd_set, "0" + path + " " + value)));
    }
    for (const std::size_t length : {1022U, 5000U, 70000U}) {
        SCOPED_TRACE(length);
        const std::string value(length, 'v');
        EXPECT_EQ(cfg_setstr(value.c_str(), "%s", path.c_str()), 1);
        const SizedRecord record = sent();
        EXPECT_TRUE(
            same_record(record, request(cmd_set, "0" + path + " " + value.substr(0, 1021))));
        EXPECT_EQ(record.msgsz, 2146U);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Set, RefusesNullAndSendsNothing) {
    EXPECT_EQ(cfg_setstr(nullptr, "/x"), -1);
    EXPECT_EQ(cfg_setstr("value", nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

// ---- cfg_get_module_pid ----------------------------------------------------

class ModulePid : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_pid, replies); }
};

TEST_F(ModulePid, SendsTheNameUnformatted) {
    leave_traces();
    answers(answer("4711"));
    EXPECT_EQ(cfg_get_module_pid("wifi%d%s"), 4711);
    EXPECT_TRUE(same_record(sent(), request(cmd_pid, "wifi%d%s")));
}

TEST_F(ModulePid, ReadsAsMuchOfTheAnswerAsIsANumber) {
    const struct {
        const char *text;
        int pid;
    } rows[] = {{"1", 1}, {"2147483647", INT_MAX}, {"12 x", 12}, {"-3", -3}, {"x", 0}, {"", 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        answers(answer(row.text));
        EXPECT_EQ(cfg_get_module_pid("wifi"), row.pid);
    }
}

TEST_F(ModulePid, ReadsNothingFromAnEarlierAnswer) {
    leave_traces();
    answers(answer("123456"));
    EXPECT_EQ(cfg_get_module_pid("wifi"), 123456);
    answers(answer("78"));
    EXPECT_EQ(cfg_get_module_pid("wifi"), 78);
    answers({Reply{}});
    EXPECT_EQ(cfg_get_module_pid("wifi"), 0);
}

TEST_F(ModulePid, PassesTheRefusalOnNotZero) {
    answers(negative(-9001, "4711"));
    EXPECT_EQ(cfg_get_module_pid("wifi"), -9001);
}

TEST_F(ModulePid, CutsANameAt1023Characters) {
    StdoutCapture output;
    EXPECT_EQ(cfg_get_module_pid(path_of(1030).c_str()), 0);
    EXPECT_TRUE(same_record(sent(), request(cmd_pid, path_of(1023))));
    EXPECT_EQ(output.stop(), overflow_warning(path_of(1023)));
}

TEST_F(ModulePid, NamesTheModuleWholeInTheFailureReport) {
    const std::string module = path_of(1100);
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_get_module_pid(module.c_str()), -2003);
    EXPECT_EQ(output.stop(), overflow_warning(module.substr(0, 1023)) +
                                 "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                                 " ERROR:Invalid argument\ncfg_get_module_pid:zan_msg_send fail!\n"
                                 "cfg_get_module_pid: module=" +
                                 module + "\ncfg_get_module_pid: pid=" + std::to_string(getpid()) +
                                 "\n");
}

TEST_F(ModulePid, RefusesNullAndSendsNothing) {
    EXPECT_EQ(cfg_get_module_pid(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
