// SPDX-License-Identifier: MIT
#include "zanctl.h"

#include "support/records.h"
#include "support/sandbox.h"

#include <sys/ipc.h>
#include <sys/msg.h>

namespace zan::test {
namespace {

TEST_F(ZanctlTest, GetRegistersReadsPrintsAndUnregisters) {
    daemon.on(class_cfg, 1, answer("RX-4400"));
    const Ended ended = run({"get", "/runtime/hw/model"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "RX-4400\n");
    EXPECT_EQ(ended.error, "");

    ASSERT_EQ(records.size(), 3U);
    const std::string name = "zanctl-" + std::to_string(pid);
    const long queue = records[0].record.mtype;
    EXPECT_TRUE(
        same_record(records[0], registration_record(cmd_register, {.mtype = queue, .src = name})));
    EXPECT_TRUE(
        same_record(records[1], request(class_cfg, cmd_get, "ZAN_CFG", "/runtime/hw/model")));
    EXPECT_TRUE(same_record(records[2],
                            registration_record(cmd_unregister, {.mtype = queue, .src = name})));
    expect_left_nothing();
}

TEST_F(ZanctlTest, GetPrintsSeveralValuesInOrder) {
    daemon.once(class_cfg, 1, answer("one"));
    daemon.once(class_cfg, 1, answer(""));
    daemon.once(class_cfg, 1, answer("three words here"));
    EXPECT_EQ(run({"get", "/1", "/2", "/3"}).output, "one\n\nthree words here\n");
}

TEST_F(ZanctlTest, GetContinuesAfterARefusal) {
    daemon.once(class_cfg, 1, answer("one"));
    daemon.once(class_cfg, 1, negative(-7, "no such node: /2"));
    daemon.once(class_cfg, 1, answer("three"));
    const Ended ended = run({"get", "/1", "/2", "/3"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "one\nthree\n");
    EXPECT_EQ(ended.error, "zanctl: /2: no such node (-7)\n");
}

TEST_F(ZanctlTest, GetPrintsAJsonObjectPerValue) {
    daemon.once(class_cfg, 1, answer("say \"hi\"\n"));
    daemon.once(class_cfg, 1,
                answer("a\xff"
                       "b"));
    EXPECT_EQ(run({"get", "--json", "/1", "/2"}).output,
              "{\"path\":\"/1\",\"value\":\"say \\\"hi\\\"\\n\"}\n"
              "{\"path\":\"/2\",\"value\":\"a\xef\xbf\xbd"
              "b\"}\n");
}

TEST_F(ZanctlTest, AcceptsOptionsBeforeTheCommand) {
    daemon.on(class_cfg, 1, answer("x"));
    EXPECT_EQ(run({"--json", "--timeout", "20", "get", "/1"}).output,
              "{\"path\":\"/1\",\"value\":\"x\"}\n");
}

TEST_F(ZanctlTest, SetSendsPathAndValueAndPrintsNothing) {
    const Ended ended = run({"set", "/x", "a b"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "");
    EXPECT_TRUE(same_record(only_request(), request(1, 2, "ZAN_CFG", "0/x a b")));
    expect_left_nothing();
}

TEST_F(ZanctlTest, SetPrintsAJsonObject) {
    EXPECT_EQ(run({"set", "--json", "/x", "a b"}).output, "{\"path\":\"/x\",\"value\":\"a b\"}\n");
}

TEST_F(ZanctlTest, SetSendsAnEmptyValue) {
    EXPECT_EQ(run({"set", "/x", ""}).status, exit_done);
    EXPECT_TRUE(same_record(only_request(), request(1, 2, "ZAN_CFG", "0/x ")));
}

TEST_F(ZanctlTest, SetTakesNumbersBracketsAndCommandNamesAsValues) {
    for (const std::string value : {"-5", "[a,b]", "get", "--", "{}"}) {
        daemon.forget_records();
        const std::vector<std::string> arguments =
            value == "--" ? std::vector<std::string>{"set", "/x", "--", value}
                          : std::vector<std::string>{"set", "/x", value};
        EXPECT_EQ(run(arguments).status, exit_done) << value;
        EXPECT_EQ(only_request().payload(), "0/x " + value);
    }
}

TEST_F(ZanctlTest, SendsPercentSignsUnchanged) {
    daemon.on(class_cfg, 1, answer("%s%n"));
    EXPECT_EQ(run({"get", "/100%/%s%n%d"}).output, "%s%n\n");
    EXPECT_EQ(only_request().payload(), "/100%/%s%n%d");
    daemon.forget_records();
    EXPECT_EQ(run({"count", "/100%%"}).status, exit_refused);
    EXPECT_EQ(only_request().payload(), "/100%%#");
    daemon.forget_records();
    EXPECT_EQ(run({"set", "/%s", "%n%%"}).status, exit_done);
    EXPECT_EQ(only_request().payload(), "0/%s %n%%");
}

TEST_F(ZanctlTest, SendsLongValuesWhole) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string value(33000, 'v');
    EXPECT_EQ(run({"set", "/x", value}).status, exit_done);
    EXPECT_EQ(only_request().payload(), "0/x " + value);
    daemon.on(class_cfg, 1, answer(value));
    EXPECT_EQ(run({"get", "/x"}).output, value + "\n");
}

TEST_F(ZanctlTest, CountAsksForTheNumberOfInstances) {
    daemon.on(class_cfg, 1, answer("12"));
    const Ended ended = run({"count", "/sys/user"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "12\n");
    EXPECT_TRUE(same_record(only_request(), request(1, 1, "ZAN_CFG", "/sys/user#")));
}

TEST_F(ZanctlTest, CountPrintsAJsonNumber) {
    daemon.on(class_cfg, 1, answer("12"));
    EXPECT_EQ(run({"count", "--json", "/sys/user"}).output,
              "{\"path\":\"/sys/user\",\"count\":12}\n");
}

TEST_F(ZanctlTest, CountRefusesAnAnswerThatIsNotANumber) {
    for (const std::string text : {"", "x", "12x", " 12", "99999999999999999999"}) {
        daemon.on(class_cfg, 1, answer(text));
        const Ended ended = run({"count", "/sys/user"});
        EXPECT_EQ(ended.status, exit_refused) << text;
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.error, "zanctl: /sys/user: the daemon answered \"" + text +
                                   "\", which is not a number\n");
    }
}

TEST_F(ZanctlTest, ArrayPrintsTheDaemonsText) {
    daemon.on(class_cfg, 23, answer("1 a\n2 b"));
    EXPECT_EQ(run({"array", "/sys/user"}).output, "1 a\n2 b\n");
    EXPECT_TRUE(same_record(only_request(), request(1, 23, "ZAN_CFG", "/sys/user")));
    EXPECT_EQ(run({"array", "--json", "/sys/user"}).output,
              "{\"path\":\"/sys/user\",\"text\":\"1 a\\n2 b\"}\n");
}

TEST_F(ZanctlTest, ArrayAddsNoEmptyLine) {
    daemon.on(class_cfg, 23, answer("1 a\n2 b\n"));
    EXPECT_EQ(run({"array", "/sys/user"}).output, "1 a\n2 b\n");
    EXPECT_EQ(run({"array", "--json", "/sys/user"}).output,
              "{\"path\":\"/sys/user\",\"text\":\"1 a\\n2 b\\n\"}\n");
    daemon.on(class_cfg, 23, answer(""));
    EXPECT_EQ(run({"array", "/sys/user"}).output, "");
}

TEST_F(ZanctlTest, DelSendsThePath) {
    EXPECT_EQ(run({"del", "/sys/user:3"}).output, "");
    EXPECT_TRUE(same_record(only_request(), request(1, 3, "ZAN_CFG", "/sys/user:3")));
    EXPECT_EQ(run({"del", "--json", "/sys/user:3"}).output,
              "{\"path\":\"/sys/user:3\",\"deleted\":true}\n");
}

TEST_F(ZanctlTest, AddSendsThePath) {
    EXPECT_EQ(run({"add", "/sys/user:3"}).output, "3\n");
    EXPECT_TRUE(same_record(only_request(), request(1, 25, "ZAN_CFG", "/sys/user:3")));
    EXPECT_EQ(run({"add", "--json", "/sys/user:3"}).output,
              "{\"path\":\"/sys/user:3\",\"added\":true,\"number\":3}\n");
}

TEST_F(ZanctlTest, PidSendsTheModulesName) {
    daemon.on(class_cfg, 34, answer("4711"));
    EXPECT_EQ(run({"pid", "wifid"}).output, "4711\n");
    EXPECT_TRUE(same_record(only_request(), request(1, 34, "ZAN_CFG", "wifid")));
    EXPECT_EQ(run({"pid", "--json", "wifid"}).output, "{\"module\":\"wifid\",\"pid\":4711}\n");
}

TEST_F(ZanctlTest, EveryCommandPrintsARefusal) {
    for (const int cmd : {1, 2, 3, 23, 25, 34})
        daemon.on(class_cfg, cmd, negative(-12, "not today"));
    for (const std::string command : {"get", "count", "array", "del", "add", "pid", "set"}) {
        const std::string subject = command == "pid" ? "wifid" : "/x";
        std::vector<std::string> arguments = {command, subject};
        if (command == "set")
            arguments.push_back("v");
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, exit_refused) << command;
        EXPECT_EQ(ended.output, "") << command;
        EXPECT_EQ(ended.error, "zanctl: " + subject + ": not today (-12)\n") << command;
    }
    expect_left_nothing();
}

TEST_F(ZanctlTest, ARefusalIsAnObjectWithJson) {
    daemon.once(class_cfg, 1, answer("one"));
    daemon.once(class_cfg, 1, negative(-101, "no such node: /2"));
    daemon.once(class_cfg, 1, negative(-5));
    const Ended ended = run({"get", "--json", "/1", "/2", "/3"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, R"({"path":"/1","value":"one"})"
                            "\n"
                            R"({"path":"/2","refused":true,"code":-101,"text":"no such node"})"
                            "\n"
                            R"({"path":"/3","refused":true,"code":-5,"text":"refused"})"
                            "\n");
    EXPECT_EQ(ended.error, "");
}

TEST_F(ZanctlTest, ARefusedRegistrationIsAnObjectWithJson) {
    daemon.on(class_registration, 0, negative(-5, "full"));
    const Ended ended = run({"get", "--json", "--name", "zanctl-x", "/x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, R"({"path":"registration as zanctl-x","refused":true,"code":-5,)"
                            R"("text":"refused"})"
                            "\n");
    EXPECT_EQ(ended.error, "");
}

TEST_F(ZanctlTest, ArrayIsStructuredWithJson) {
    daemon.on(class_cfg, 23, answer("1 name=a%20b level=%00\n12 name=%25\n"));
    EXPECT_EQ(run({"array", "--json", "/sys/user"}).output,
              R"({"path":"/sys/user","instances":[{"number":1,"values":{"name":"a b","level":""}},)"
              R"({"number":12,"values":{"name":"%"}}]})"
              "\n");
    daemon.on(class_cfg, 23, answer(""));
    EXPECT_EQ(run({"array", "--json", "/sys/user"}).output,
              "{\"path\":\"/sys/user\",\"instances\":[]}\n");
}

TEST_F(ZanctlTest, AddPrintsTheNumberOfTheNewInstance) {
    daemon.once(class_cfg, 23, answer("1 name=a\n3 name=c\n"));
    daemon.once(class_cfg, 23, answer("1 name=a\n2 name=\n3 name=c\n"));
    const Ended ended = run({"add", "/sys/user"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "2\n");
    ASSERT_EQ(records.size(), 5U);
    EXPECT_TRUE(same_record(records[2], request(1, 25, "ZAN_CFG", "/sys/user")));
}

TEST_F(ZanctlTest, AddSaysIfTheNumberIsUnknown) {
    // Another module added one too; a daemon that lists instances in another form.
    for (const auto &[before, after] : {std::pair("", "1 a=\n2 a=\n"), std::pair("x", "y")}) {
        daemon.once(class_cfg, 23, answer(before));
        daemon.once(class_cfg, 23, answer(after));
        const Ended ended = run({"add", "/sys/user"});
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.error,
                  "zanctl: /sys/user: added, but the daemon does not tell its number\n");
    }
}

TEST_F(ZanctlTest, ARefusalWithoutTextShowsItsCode) {
    for (const int result : {-1, -2, -2003, -12}) {
        daemon.on(class_cfg, 1, negative(result));
        const Ended ended = run({"get", "/x"});
        EXPECT_EQ(ended.status, exit_refused);
        EXPECT_EQ(ended.error, "zanctl: /x: refused (" + std::to_string(result) + ")\n");
    }
}

TEST_F(ZanctlTest, RegistersUnderTheGivenName) {
    EXPECT_EQ(run({"del", "--name", "wifid", "/x"}).status, exit_done);
    ASSERT_EQ(records.size(), 3U);
    for (const SizedRecord &sized : records)
        EXPECT_EQ(sized.record.src(), "wifid");
    EXPECT_FALSE(file_exists("/tmp/wifid_0.msq"));
    expect_left_nothing();
}

TEST_F(ZanctlTest, IgnoresAnswersToOtherCommands) {
    daemon.on(class_cfg, 1, {{.payload = "wrong", .cmd = 2}, {.payload = "right"}});
    EXPECT_EQ(run({"get", "/x"}).output, "right\n");
}

// The queue of the first attempt exists already, so the library prints an error and
// tries again under another key.
class NoisyLibrary : public ZanctlTest {
protected:
    void SetUp() override {
        write_file(key_file, "");
        queue = msgget(ftok(key_file, 0), IPC_CREAT | IPC_EXCL | 0777);
        ASSERT_GE(queue, 0);
        daemon.on(class_cfg, 1, answer("value"));
    }
    void TearDown() override { remove_queue(queue); }

    static constexpr const char *key_file = "/tmp/noisy_0.msq";
    static constexpr const char *noise = "zan_msg_create_by_id ERROR:File exists\n"
                                         "zan_register_msq:register fail! Retry 3[1]...\n";
    int queue = -1;
};

TEST_F(NoisyLibrary, IsSilent) {
    const Ended ended = run({"get", "--name", "noisy", "/x"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "value\n");
    EXPECT_EQ(ended.error, "");
}

TEST_F(NoisyLibrary, PrintsDiagnosticsOnStandardErrorWithVerbose) {
    const Ended ended = run({"get", "--json", "--verbose", "--name", "noisy", "/x"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "{\"path\":\"/x\",\"value\":\"value\"}\n");
    EXPECT_EQ(ended.error, noise);
}

} // namespace
} // namespace zan::test
