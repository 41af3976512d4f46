// SPDX-License-Identifier: MIT
//
// What a module of the library sees when zansim lets its requests go wrong.
#include "sim/client.h"
#include "sim/raw_link.h"

#include "support/patience.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <unistd.h>

namespace zan::test {

namespace {

class FaultEffect : public ClientTest {
protected:
    FaultEffect() { autostart_ = false; }
    void SetUp() override {}

    void with(const std::vector<std::string> &rules, const std::string &more = {}) {
        std::vector<std::string> options{"--trace"};
        for (const std::string &rule : rules)
            options.insert(options.end(), {"--fault", rule});
        if (!more.empty())
            options.push_back(more);
        serve(tree_file(R"({"a": "first", "b": "second"})"), options);
    }

    static int get(const char *path, char (&text)[64]) {
        return cfg_getstr(text, sizeof text, "%s", path);
    }
};

TEST_F(FaultEffect, ANegativeResultWithItsTextTakesTheRequestsPlace) {
    with({R"(fail -5 "no such luck" command=set)", "fail -6 path=/b"});
    EXPECT_EQ(cfg_setstr("x", "/a"), -5);
    EXPECT_EQ(value("/a"), "first");
    char text[64] = "untouched";
    EXPECT_EQ(get("/b", text), -6);
    EXPECT_STREQ(text, "untouched");
    EXPECT_TRUE(same_record(module().set("/a", "x"),
                            module().answer(class_cfg, cmd_set, -5, "no such luck")));
    EXPECT_EQ(value("/zansim/faults"), "3");
}

TEST_F(FaultEffect, AHeaderAloneLeavesTheTextOfTheRecordBefore) {
    with({"header-only path=/b"});
    EXPECT_TRUE(same_record(module().get("/b"), module().answer(class_cfg, cmd_get, 1)));
    char text[64] = "untouched";
    EXPECT_EQ(get("/b", text), 1);
    EXPECT_NE(std::string(text), "second");
}

TEST_F(FaultEffect, AWrongCommandComesBeforeTheAnswer) {
    with({"wrong-first command=get times=2"});
    EXPECT_EQ(value("/a"), "first") << "the library passes over the wrong one";
    const SizedRecord wrong = module().get("/b");
    EXPECT_TRUE(same_record(
        wrong, module().answer(class_cfg, cmd_get + 1, 1, "answer to another command")));
    EXPECT_EQ(await_record(module().queue(), class_cfg).payload(), "second");
}

TEST_F(FaultEffect, ADroppedRequestHasNoEffectAndAMutedOneHas) {
    with({"drop path=/a", "mute path=/b command=set"});
    module().send(module().request(class_cfg, cmd_set, "0/a x"));
    module().send(module().request(class_cfg, cmd_set, "0/b x"));
    EXPECT_EQ(value("/b"), "x");
    EXPECT_EQ(queue_length(module().queue()), 0);
    ASSERT_EQ(cfg_setstr("", "/zansim/fault"), 1);
    EXPECT_EQ(value("/a"), "first");
}

TEST_F(FaultEffect, ADelayHoldsUpItsRequestAndNoOther) {
    with({"delay 3600s class=CFG source=TESTER", "delay 300ms path=/b"});
    module().send(module().request(class_cfg, cmd_get, "/a"));
    const auto start = std::chrono::steady_clock::now();
    auto slow = std::async(std::launch::async, [this] {
        const auto other = another_module("OTHER");
        return other->get("/b").payload();
    });
    // While both wait, everybody else is served.
    EXPECT_EQ(value("/a"), "first");
    EXPECT_EQ(cfg_setstr("third", "/a"), 1);
    EXPECT_EQ(slow.get(), "second");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(FaultEffect, ADelayGoesWithAnotherAction) {
    with({"delay 1ms fail -7 path=/a", "delay 1ms header-only path=/b"});
    char text[64];
    EXPECT_EQ(get("/a", text), -7);
    EXPECT_TRUE(same_record(module().get("/b"), module().answer(class_cfg, cmd_get, 1)));
}

TEST_F(FaultEffect, DyingLeavesEverythingBehind) {
    with({"die command=set skip=1"});
    EXPECT_EQ(cfg_setstr("x", "/a"), 1);
    module().send(module().request(class_cfg, cmd_set, "0/a y"));
    EXPECT_EQ(zansim().program().wait(), 128 + SIGKILL);
    EXPECT_NE(zansim().program().error().find("zansim: an injected fault ends zansim\n"),
              std::string::npos);
    EXPECT_TRUE(file_exists("/tmp/zan_qid"));
    EXPECT_TRUE(queue_exists(zansim().request_queue()));
    remove_queue(g_msq_qid);
    g_msq_qid = -1;
    // The next one clears it away.
    start(tree_file("{}"));
    EXPECT_NE(errors().find("zansim: cleared what a killed run left"), std::string::npos)
        << errors();
}

TEST_F(FaultEffect, RegistrationsAndActionsFailToo) {
    write_file("/tmp/zan_rules", "# two bad days\nfail -77 class=REGISTRATION source=late\n"
                                 "fail -78 \"no\" command=shell path=reb*\n");
    with({}, "--fault-file=/tmp/zan_rules");
    const RawModule late(zansim(), "late");
    const SizedRecord answer = late.announce(cmd_register);
    EXPECT_EQ(answer.record.result(), -77);
    EXPECT_EQ(zan_run_shell(1, 0, "reboot"), -78);
    EXPECT_EQ(zan_run_shell(1, 0, "uptime"), 1);
    EXPECT_EQ(value("/zansim/modules"), "2");
}

TEST_F(FaultEffect, AnAgentMeetsThemOnItsLinkAndMayLeaveMeanwhile) {
    with({"delay 100ms command=get path=/a", "fail -5 \"no\" path=/b"});
    {
        RawLink agent("AGENT");
        agent.announce(cmd_register);
        EXPECT_TRUE(same_bytes(agent.call(class_cfg, cmd_get, "/b"),
                               agent.answer(zansim(), class_cfg, cmd_get, -5, "no")));
        EXPECT_TRUE(same_bytes(agent.call(class_cfg, cmd_get, "/a"),
                               agent.answer(zansim(), class_cfg, cmd_get, 1, "first")));
        agent.send(agent.request(class_cfg, cmd_get, "/a"), ByteOrder::network);
    }
    EXPECT_TRUE(eventually([] { return value("/zansim/modules") == "2"; }));
    EXPECT_EQ(value("/a"), "first"); // delayed behind that of the agent
    EXPECT_EQ(value("/zansim/faults"), "4");
}

TEST_F(FaultEffect, RulesComeAndGoWhileZansimRuns) {
    with({});
    EXPECT_EQ(cfg_setstr("fail -9 path=/**", "/zansim/fault"), 1);
    EXPECT_EQ(cfg_setstr("drop command=set path=/none", "/zansim/fault"), 1);
    EXPECT_EQ(value("/zansim/fault"), "fail -9 path=/**\ndrop command=set path=/none\n");
    EXPECT_EQ(value("/a"), "none");
    EXPECT_EQ(value("/zansim/faults"), "1") << "zansim's own branch is spared";
    expect_refused(module().set("/zansim/fault", "drip"), class_cfg, cmd_set, -105,
                   "column 1: \"drip\" is neither an action (delay, drop, mute, fail, "
                   "header-only, wrong-first, die) nor a condition like class=CFG");
    EXPECT_EQ(cfg_setstr("", "/zansim/fault"), 1);
    EXPECT_EQ(value("/a"), "first");
}

TEST_F(FaultEffect, TheTraceTellsWhichFaultStruck) {
    with({"mute path=/a", "fail -5 \"x\" path=/b"});
    module().send(module().request(class_cfg, cmd_get, "/a"));
    module().get("/b");
    for (const char *const line :
         {" --  fault injected: mute path=/a\n", " --  the answer to TESTER is suppressed\n",
          " --  fault injected: fail -5 \\\"x\\\" path=/b\n"})
        EXPECT_TRUE(zansim().program().read_until(line)) << line;
}

TEST_F(FaultEffect, AMistakeInARuleKeepsZansimFromStarting) {
    const auto expect_failure = [](const std::string &option, const std::string &argument,
                                   int status, const std::string &error) {
        Program program({zansim_path(), option, argument, tree_file("{}")});
        EXPECT_EQ(program.wait(), status);
        EXPECT_EQ(program.error(), error);
        EXPECT_EQ(program.output(), "");
    };
    expect_failure("--fault", "drop path=", 2,
                   "zansim: --fault \"drop path=\": column 6: no pattern\n");
    write_file("/tmp/zan_rules", "drop\nfail\n");
    expect_failure("--fault-file", "/tmp/zan_rules", 1,
                   "zansim: /tmp/zan_rules:2:1: fail without a result, as in \"fail -5\"\n");
    expect_failure("--fault-file", "/none", 1,
                   "zansim: /none: cannot be read: No such file or directory\n");
}

} // namespace

} // namespace zan::test
