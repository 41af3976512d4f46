// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"

#include <climits>

namespace zan::test {
namespace {

// ---- zan_loginauth ---------------------------------------------------------

class Login : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_login, replies); }

    // Checks what was composed from the items: the bytes that stand in the payload
    // and the length that the record claims.
    void expect_sent(const std::string &text, std::size_t len) {
        std::string payload = text;
        payload.resize(len);
        EXPECT_TRUE(same_record(sent(), request(cmd_login, payload)));
    }

    zan_login_req login = {"web", "admin", "secret", "192.168.1.5", nullptr, -1};
};

TEST_F(Login, SendsFourItemsWithThreeNewlines) {
    leave_traces();
    EXPECT_EQ(zan_loginauth(&login), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_login, "web\nadmin\nsecret\n192.168.1.5")));
    EXPECT_EQ(record.msgsz, 128U);
}

TEST_F(Login, SendsAFifthItemBehindAFourthNewline) {
    leave_traces();
    login.item5 = "%d x";
    EXPECT_EQ(zan_loginauth(&login), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_login, "web\nadmin\nsecret\n192.168.1.5\n%d x")));
    login = {"", "", "", "", "", 0};
    EXPECT_EQ(zan_loginauth(&login), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_login, "\n\n\n\n")));
}

TEST_F(Login, CutsTheTextAt1022CharactersButCountsItWhole) {
    StdoutCapture output;
    for (const std::size_t length : {1016U, 1017U, 1018U, 3000U}) {
        SCOPED_TRACE(length);
        const std::string last = path_of(length);
        login = {"a", "b", "c", last.c_str(), nullptr, 0};
        leave_traces();
        EXPECT_EQ(zan_loginauth(&login), 1);
        expect_sent(("a\nb\nc\n" + last).substr(0, 1022), 6 + length);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Login, CutsAFifthItemInTheSameWay) {
    // The four take 1000, 1021, 1022 and 1500 characters: there is room for 22, for
    // the newline, and for nothing.
    for (const std::size_t taken : {1000U, 1021U, 1022U, 1500U}) {
        SCOPED_TRACE(taken);
        const std::string last = path_of(taken - 6);
        const std::string fifth(40, 'z');
        login = {"a", "b", "c", last.c_str(), fifth.c_str(), 0};
        leave_traces();
        EXPECT_EQ(zan_loginauth(&login), 1);
        expect_sent(("a\nb\nc\n" + last + "\n" + fifth).substr(0, 1022), taken + 41);
    }
}

TEST_F(Login, OfMoreThanARecordIsNotSent) {
    const std::string huge(40000, 'h');
    login.item2 = huge.c_str();
    StdoutCapture output;
    EXPECT_EQ(zan_loginauth(&login), -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                                 " ERROR:Invalid argument\nzan_loginauth:zan_msg_send fail!\n"
                                 "zan_loginauth: pid=" +
                                 std::to_string(getpid()) + "\n");
    EXPECT_EQ(login.result, 0);
    EXPECT_TRUE(sent_nothing());
}

TEST_F(Login, StoresTheNumberOfTheAnswer) {
    const struct {
        const char *text;
        int number;
    } rows[] = {{"3", 3}, {"-4 no", -4}, {"2147483647", INT_MAX}, {"x", 0}, {"", 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        login.result = 99;
        answers(answer(row.text));
        EXPECT_EQ(zan_loginauth(&login), 1);
        EXPECT_EQ(login.result, row.number);
    }
}

TEST_F(Login, StoresZeroWhenThereIsNoNumber) {
    answers(negative(-5, "77"));
    login.result = 99;
    EXPECT_EQ(zan_loginauth(&login), -5);
    EXPECT_EQ(login.result, 0);
    daemon.die();
    login.result = 99;
    StdoutCapture output;
    EXPECT_EQ(zan_loginauth(&login), -2003);
    EXPECT_EQ(login.result, 0);
}

TEST_F(Login, NeedsItsFirstFourItems) {
    EXPECT_EQ(zan_loginauth(nullptr), -1);
    for (const char *zan_login_req::*item : {&zan_login_req::item1, &zan_login_req::item2,
                                             &zan_login_req::item3, &zan_login_req::item4}) {
        zan_login_req lacking = login;
        lacking.*item = nullptr;
        EXPECT_EQ(zan_loginauth(&lacking), -1);
    }
    EXPECT_TRUE(sent_nothing());
}

// ---- accounts --------------------------------------------------------------

using Accounts = ConfigTest;

TEST_F(Accounts, AreCounted) {
    daemon.once(class_cfg, cmd_get, answer("3"));
    EXPECT_EQ(cfg_getcount_login_account(), 3);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user#")));
}

TEST_F(Accounts, HaveANameAndAPassword) {
    char value[16] = "";
    daemon.once(class_cfg, cmd_get, answer("admin"));
    EXPECT_EQ(cfg_getstr_login_un(value, sizeof value, 2), 1);
    EXPECT_STREQ(value, "admin");
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user:2/name")));
    daemon.once(class_cfg, cmd_get, answer("secret"));
    EXPECT_EQ(cfg_getstr_login_pw(value, sizeof value, -1), 1);
    EXPECT_STREQ(value, "secret");
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user:-1/password")));
}

TEST_F(Accounts, AreReadWithoutABufferToo) {
    daemon.once(class_cfg, cmd_get, answer("admin"));
    EXPECT_EQ(cfg_getstr_login_un(nullptr, 16, 1), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user:1/name")));
    daemon.once(class_cfg, cmd_get, answer("secret"));
    EXPECT_EQ(cfg_getstr_login_pw(nullptr, 16, 1), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, "/sys/user:1/password")));
}

TEST_F(Accounts, FailAsReadingAValueDoes) {
    char value[16] = "before";
    daemon.once(class_cfg, cmd_get, negative(-9));
    EXPECT_EQ(cfg_getstr_login_un(value, sizeof value, 1), -9);
    EXPECT_STREQ(value, "before");
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_getstr_login_pw(value, sizeof value, 1), -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                                 " ERROR:Invalid argument\ncfg_getstr:zan_msg_send fail!\n"
                                 "cfg_getstr: path=/sys/user:1/password\ncfg_getstr: pid=" +
                                 std::to_string(getpid()) + "\n");
}

} // namespace
} // namespace zan::test
