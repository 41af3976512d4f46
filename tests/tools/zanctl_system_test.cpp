// SPDX-License-Identifier: MIT
//
// The commands beyond values and messages: each request as it travels, what is
// printed for its answer, and what is printed when the daemon refuses.
#include "zanctl.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "support/sandbox.h"

namespace zan::test {
namespace {

using Words = std::vector<std::string>;

struct Row {
    const char *name;
    Words arguments;
    int type;
    int cmd;
    std::string dst;
    std::string payload;
    int arg = 0;
    std::string answer = {};
    std::string output = {};
    std::string json;
    std::string subject; // of a refusal

    friend void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }
};

std::string action_payload(std::int32_t code, std::int32_t wait, std::int32_t param,
                           const std::string &name) {
    const std::int32_t words[] = {code, wait, param};
    std::string payload(sizeof words, '\0');
    std::memcpy(payload.data(), words, sizeof words);
    payload += name;
    payload.resize(1036);
    return payload;
}

Row configuration(const char *name, Words arguments, int cmd, std::string payload, int arg,
                  std::string answer, std::string output, std::string json, std::string subject) {
    return {name,
            std::move(arguments),
            class_cfg,
            cmd,
            "ZAN_CFG",
            std::move(payload),
            arg,
            std::move(answer),
            std::move(output),
            std::move(json),
            std::move(subject)};
}

Row action(const char *name, Words arguments, int code, int param, const std::string &text,
           std::string json, std::string subject) {
    return {name,
            std::move(arguments),
            class_action,
            code,
            "ZAN_FAD",
            action_payload(code, 1, param, text),
            0,
            "",
            "",
            std::move(json),
            std::move(subject)};
}

const Row rows[] = {
    configuration("attr_get", {"attr", "get", "/a%d"}, 15, "/a%d", 0, "ro", "ro\n",
                  R"({"path":"/a%d","attributes":"ro"})", "/a%d"),
    configuration("attr_set", {"attr", "set", "/a", "r w"}, 16, "/a r w", 0, "", "",
                  R"({"path":"/a","attributes":"r w"})", "/a"),
    configuration("dump", {"dump", "/tmp/a b", "--mode", "-3"}, 5, "/tmp/a b", -3, "", "",
                  R"({"file":"/tmp/a b","mode":-3})", "/tmp/a b"),
    configuration("print", {"print", "/a"}, 12, "/a", 0, "", "", R"({"path":"/a","mode":0})", "/a"),
    configuration("print_text", {"print", "/a", "x y", "--mode", "7"}, 12, "/a x y", 7, "", "",
                  R"({"path":"/a","mode":7})", "/a"),
    configuration("reset", {"reset", "--yes", "/a"}, 21, "/a", 0, "", "",
                  R"({"path":"/a","reset":true})", "/a"),
    configuration("login", {"login", "web", "admin", "", "x"}, 19, "web\nadmin\n\nx", 0, "3", "3\n",
                  R"({"login":3})", "login"),
    configuration("login_five", {"login", "a", "b", "c", "d", "e"}, 19, "a\nb\nc\nd\ne", 0, "0",
                  "0\n", R"({"login":0})", "login"),
    configuration("convert", {"convert", "2", "A.B.1"}, 22, "2A.B.1", 0, "/A/B:1", "/A/B:1\n",
                  R"({"path":"A.B.1","kind":2,"converted":"/A/B:1"})", "A.B.1"),
    configuration("ifname", {"ifname", "/a"}, 29, "/a", 0, "eth0", "eth0\n",
                  R"({"path":"/a","interface":"eth0"})", "/a"),
    action("action_upgrade_firmware", {"action", "upgrade", "firmware", "/tmp/f", "--param", "5"},
           2, 5, "/tmp/f", R"({"action":2,"done":true,"name":"/tmp/f"})", "action upgrade"),
    action("action_upgrade_config", {"action", "upgrade", "config", "c"}, 3, 0, "c",
           R"({"action":3,"done":true,"name":"c"})", "action upgrade"),
    action("action_save", {"action", "save"}, 4, 0, "", R"({"action":4,"done":true})",
           "action save"),
    action("action_save_config2", {"action", "save", "config2"}, 10, 0, "",
           R"({"action":10,"done":true})", "action save"),
    action("action_save_log", {"action", "save", "log"}, 15, 0, "", R"({"action":15,"done":true})",
           "action save"),
    action("action_backup", {"action", "backup"}, 6, 0, "", R"({"action":6,"done":true})",
           "action backup"),
    action("action_backup_old", {"action", "backup", "--old", "b"}, 16, 0, "b",
           R"({"action":16,"done":true,"name":"b"})", "action backup"),
    action("action_reset", {"action", "reset", "web", "--yes"}, 5, 0, "web",
           R"({"action":5,"done":true,"name":"web"})", "action reset"),
    action("action_reset_keep_wifi", {"action", "reset", "--keep-wifi", "--yes"}, 17, 0, "",
           R"({"action":17,"done":true})", "action reset"),
    action("action_shell", {"action", "shell", "echo '%d' >/tmp/x"}, 7, 0, "echo '%d' >/tmp/x",
           R"({"action":7,"done":true,"name":"echo '%d' >/tmp/x"})", "action shell"),
};

// Upgrades and backups report that they wait.
std::string waiting(const Row &row) {
    if (row.subject != "action upgrade" && row.subject != "action backup")
        return "";
    return "zanctl: " + row.subject + ": waiting for the daemon, up to 10 minutes\n";
}

class SystemCommand : public ZanctlTest, public testing::WithParamInterface<Row> {
protected:
    void SetUp() override { daemon.on(GetParam().type, GetParam().cmd, answer(GetParam().answer)); }

    // Standard input is no terminal: nothing asks for --yes.
    Ended run_row(const std::string &option = "") {
        Words words = GetParam().arguments;
        if (!option.empty())
            words.push_back(option);
        daemon.forget_records();
        return run(words);
    }
};
INSTANTIATE_TEST_SUITE_P(Of, SystemCommand, testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(SystemCommand, SendsItsRequestAndPrintsTheAnswer) {
    const Row &row = GetParam();
    const Ended ended = run_row();
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, row.output);
    EXPECT_EQ(ended.error, waiting(row));
    Fields expected = request(row.type, row.cmd, row.dst, row.payload);
    expected.arg = row.arg;
    EXPECT_TRUE(same_record(only_request(), expected));
    expect_left_nothing();

    EXPECT_EQ(run_row("--json").output, row.json + "\n");
}

TEST_P(SystemCommand, PrintsARefusal) {
    daemon.on(GetParam().type, GetParam().cmd, negative(-12, "not today"));
    const Ended ended = run_row("--json");
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, R"({"path":")" + GetParam().subject +
                                R"(","refused":true,"code":-12,"text":"not today"})" + "\n");
    EXPECT_EQ(ended.error, waiting(GetParam()));
    EXPECT_EQ(run_row().error,
              waiting(GetParam()) + "zanctl: " + GetParam().subject + ": not today (-12)\n");
}

// ---- actions that are not waited for ----------------------------------------

TEST_F(ZanctlTest, NoWaitDoesNotWaitForTheResult) {
    daemon.on(class_action, 7, never());
    const Ended ended = run({"action", "shell", "--no-wait", "--param", "9", "true", "--json"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "{\"action\":7,\"done\":false,\"name\":\"true\"}\n");
    EXPECT_TRUE(same_record(only_request(),
                            request(class_action, 7, "ZAN_FAD", action_payload(7, 0, 9, "true"))));
    daemon.forget_records();
    daemon.on(class_action, 6, never());
    EXPECT_EQ(run({"action", "backup", "--no-wait"}).status, exit_done);
    EXPECT_TRUE(same_record(only_request(),
                            request(class_action, 6, "ZAN_FAD", action_payload(6, 0, 0, ""))));
}

// A command of that name in the way writes down its arguments; nothing restarts.
TEST_F(ZanctlTest, RebootStopsTelephonyAndDoesNotWait) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    mkdir("/tmp/bin", 0755);
    write_file("/tmp/bin/appmgrcmd", "#!/bin/sh\necho \"$*\" >>/tmp/appmgrcmd\n");
    chmod("/tmp/bin/appmgrcmd", 0755);
    daemon.on(class_action, 9, never());
    Program program(
        script("PATH=/tmp/bin:$PATH exec \"$@\"", {"action", "reboot", "--yes", "--json"}),
        {.host = true});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "{\"action\":9,\"done\":false}\n");
    EXPECT_TRUE(same_record(only_request(),
                            request(class_action, 9, "ZAN_FAD", action_payload(9, 0, 0, ""))));
    EXPECT_EQ(read_file("/tmp/appmgrcmd"), "del sipapp\n");
}

TEST_F(ZanctlTest, ALongActionEndsInTime) {
    daemon.on(class_action, 3, never());
    const Ended ended = run_until_expired({"action", "upgrade", "--yes", "config", "c"}, 2);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_EQ(ended.error, "zanctl: action upgrade: waiting for the daemon, up to 10 minutes\n"
                           "zanctl: no answer from the daemon within 10 minutes (is it busy? "
                           "--timeout SECONDS waits longer)\n");
    expect_left_nothing();
}

TEST_F(ZanctlTest, FadIsAnAliasOfAction) {
    EXPECT_EQ(run({"fad", "save", "log", "--json"}).output, "{\"action\":15,\"done\":true}\n");
    EXPECT_TRUE(same_record(only_request(),
                            request(class_action, 15, "ZAN_FAD", action_payload(15, 1, 0, ""))));
}

// ---- apply ------------------------------------------------------------------

TEST_F(ZanctlTest, ApplyChecksFirstWhetherTheConfigurationIsBeingWritten) {
    daemon.on(class_cfg, 1, answer("0"));
    EXPECT_EQ(run({"apply"}).status, exit_done);
    ASSERT_EQ(records.size(), 4U);
    EXPECT_TRUE(same_record(records[1],
                            request(class_cfg, 1, "ZAN_CFG", "/runtime/app/tr069/config_state")));
    EXPECT_TRUE(same_record(records[2], request(class_cfg, 32, "ZAN_CFG", "")));
    EXPECT_EQ(run({"apply", "--json"}).output, "{\"applied\":\"all\"}\n");

    daemon.on(class_cfg, 1, answer("1"));
    daemon.forget_records();
    const Ended held_back = run({"apply"});
    EXPECT_EQ(held_back.status, exit_refused);
    EXPECT_EQ(held_back.error, "zanctl: apply: refused (-1)\n");
    EXPECT_EQ(records.size(), 3U);
}

TEST_F(ZanctlTest, ApplyOfTheFirewallChecksNothing) {
    EXPECT_EQ(run({"apply", "--firewall", "--json"}).output, "{\"applied\":\"firewall\"}\n");
    EXPECT_TRUE(same_record(only_request(), request(class_cfg, 33, "ZAN_CFG", "")));
    daemon.on(class_cfg, 33, negative(-8, "not today"));
    const Ended refused = run({"apply", "--firewall"});
    EXPECT_EQ(refused.status, exit_refused);
    EXPECT_EQ(refused.error, "zanctl: apply: refused (-8)\n");
}

TEST_F(ZanctlTest, ApplyEndsInTime) {
    daemon.on(class_cfg, 33, never());
    const Ended ended = run_until_expired({"apply", "--firewall", "--timeout", "600"}, 2);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_THAT(ended.error,
                testing::HasSubstr("zanctl: no answer from the daemon within 10 minutes"));
    EXPECT_EQ(records.size(), 3U) << "registered, applied and unregistered";
}

// ---- login ------------------------------------------------------------------

TEST_F(ZanctlTest, LoginReadsItemsFromStandardInput) {
    daemon.on(class_cfg, 19, answer("1"));
    Program program(zanctl_command({"login", "web", "-", "x", "-"}),
                    {.input = "secret one\nsecret two\nnot read\n"});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "1\n");
    EXPECT_EQ(ended.error, "");
    EXPECT_EQ(only_request().payload(), "web\nsecret one\nx\nsecret two");
}

TEST_F(ZanctlTest, LoginAcceptsALastLineWithoutNewline) {
    daemon.on(class_cfg, 19, answer("1"));
    Program program(zanctl_command({"login", "web", "-", "-", "x"}), {.input = "\nb"});
    EXPECT_EQ(finish(program).status, exit_done);
    EXPECT_EQ(only_request().payload(), "web\n\nb\nx");
}

TEST_F(ZanctlTest, LoginNeedsALineForEachItem) {
    Program program(zanctl_command({"login", "web", "-", "x", "-"}), {.input = "secret\n"});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_usage);
    EXPECT_EQ(ended.error, "zanctl: item 4 is missing on standard input\n");
    EXPECT_EQ(records.size(), 2U);
    expect_left_nothing();
}

TEST_F(ZanctlTest, LoginIsNotTruncated) {
    daemon.on(class_cfg, 19, answer("1"));
    EXPECT_EQ(run({"login", "a", "b", "c", std::string(1016, 'd')}).status, exit_done);
    daemon.forget_records();
    const Ended ended = run({"login", "a", "b", "c", std::string(1017, 'd')});
    EXPECT_EQ(ended.status, exit_usage);
    EXPECT_EQ(ended.error, "zanctl: a login has at most 1022 characters\n");
    EXPECT_EQ(records.size(), 2U);
}

// ---- firewall ---------------------------------------------------------------

struct FirewallRow {
    Words options;
    std::string line;
    std::string json;
};

TEST_F(ZanctlTest, FirewallComposesALine) {
    const FirewallRow forms[] = {
        {{"-f", "up"}, "-f up", R"({"f":"up"})"},
        {{"-f", "up", "-p", "ppp0 x"}, "-f up -p ppp0 x", R"({"f":"up","p":"ppp0 x"})"},
        {{"-a", "all", "-f", "up"}, "-f up -a all", R"({"a":"all","f":"up"})"},
        {{"-f", "up", "-p", "x", "-a", "y"}, "-f up -p x -a y", R"({"a":"y","f":"up","p":"x"})"},
        {{"-f", "up", "-k", "key"}, "-f up -k key", R"({"f":"up","k":"key"})"},
        {{"-C", "rule %d"}, "-C rule %d", R"({"C":"rule %d"})"},
        {{"-b", "-p", "x", "-i", "y", "-m", "-1"},
         "-b -p x -i y -m -1",
         R"({"i":"y","m":"-1","p":"x"})"},
        {{"-f", std::string(1007, 'f')},
         "-f " + std::string(1007, 'f'),
         R"({"f":")" + std::string(1007, 'f') + R"("})"},
    };
    daemon.on(class_control, 0, never());
    for (const FirewallRow &row : forms) {
        SCOPED_TRACE(row.line);
        daemon.forget_records();
        Words words = {"firewall", "--json"};
        words.insert(words.end(), row.options.begin(), row.options.end());
        const Ended ended = run(words);
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output, "{\"firewall\":" + row.json + "}\n");
        std::string payload = "firewall_cntl " + row.line;
        payload.resize(1025);
        const SizedRecord sent = only_request();
        Fields expected = request(class_control, 0, "ZAN", payload);
        expected.time = sent.record.word(at::time);
        EXPECT_NE(expected.time, 0);
        EXPECT_TRUE(same_record(sent, expected));
    }
}

// ---- remote management ------------------------------------------------------

TEST_F(ZanctlTest, CwmpPrintsTheAnswer) {
    daemon.on(class_cwmp, 7, {{.payload = "the answer"}});
    const Ended ended = run({"cwmp", "7", "a question"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "the answer\n");
    EXPECT_TRUE(same_record(only_request(), request(class_cwmp, 7, "ZAN_CWMP", "a question")));

    daemon.on(class_cwmp, -2, {{.payload = "more", .arg = 1}});
    EXPECT_EQ(run({"cwmp", "--json", "-2"}).output,
              "{\"code\":-2,\"result\":0,\"answer\":\"more\"}\n");
    daemon.on(class_cwmp, 0, answer(""));
    EXPECT_EQ(run({"cwmp", "0"}).output, "");
    daemon.on(class_cwmp, 1, negative(-3, "not today"));
    EXPECT_EQ(run({"cwmp", "1"}).error, "zanctl: cwmp 1: not today (-3)\n");
}

} // namespace
} // namespace zan::test
