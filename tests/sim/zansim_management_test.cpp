// SPDX-License-Identifier: MIT
//
// Remote-management requests: to the module that serves them, and from a file.
#include "sim/client.h"

#include "support/patience.h"

#include <sys/wait.h>
#include <unistd.h>

namespace zan::test {

namespace {

class ManagementRequest : public ClientTest {
protected:
    // The answer to a request of this process; its text, and what the call returned.
    static std::pair<int, std::string> ask(int cmd, const std::string &request) {
        EXPECT_EQ(zan_do_cwmp_request(cmd, request.data(), static_cast<int>(request.size())), 1);
        return collect(cmd);
    }

    static std::pair<int, std::string> collect(int cmd) {
        auto answer = std::make_unique<zan_resp>();
        const int result = zan_cwmp_recv(cmd, answer.get());
        return {result, result < 0 ? "" : std::string(answer->data, answer->data + answer->len)};
    }

    static Fields request_of_client(int cmd, const std::string &payload) {
        return {.mtype = class_cwmp,
                .type = class_cwmp,
                .cmd = cmd,
                .dst = "ZAN_CWMP",
                .src = "client",
                .pid = getpid(),
                .payload = payload};
    }

    using Answer = std::pair<int, std::string>;
};

TEST_F(ManagementRequest, GoesToTheServingModuleAndItsAnswerBack) {
    const auto server = another_module("ZAN_CWMP");
    ASSERT_EQ(zan_do_cwmp_request(5, "query", 5), 1);
    EXPECT_TRUE(
        same_record(await_record(server->queue(), class_cwmp), request_of_client(5, "query")));
    // As the library of the serving module sends it, to its own name.
    Fields answer = server->request(class_cwmp, 5, "the answer");
    answer.arg = 1;
    answer.time = 99;
    server->send(answer);
    Fields expected = answer;
    expected.mtype = class_cwmp;
    expected.dst = "client";
    EXPECT_TRUE(same_record(await_record(g_msq_qid, class_cwmp), expected));
    server->send(answer); // nobody waits any more
    EXPECT_EQ(value("/zansim/modules"), "3");
    EXPECT_EQ(queue_length(server->queue()), 0);
    EXPECT_EQ(queue_length(g_msq_qid), 0);
}

TEST_F(ManagementRequest, IsAnsweredInTheOrderOfItsCommandUnlessTheAnswerNamesSomebody) {
    const auto server = another_module("ZAN_CWMP");
    module().send(module().request(class_cwmp, 5, "first"));
    ASSERT_EQ(zan_do_cwmp_request(5, "second", 6), 1);
    ASSERT_EQ(zan_do_cwmp_request(6, "third", 5), 1);
    for (const char *const text : {"first", "second", "third"})
        EXPECT_EQ(await_record(server->queue(), class_cwmp).payload(), text);
    Fields named = server->request(class_cwmp, 5, "to the second");
    named.dst = "client";
    server->send(named);
    server->send(server->request(class_cwmp, 6, "to the third"));
    Fields refusal = server->request(class_cwmp, 5, "no");
    refusal.result = -9;
    server->send(refusal);
    EXPECT_EQ(collect(5), Answer(1, "to the second"));
    EXPECT_EQ(collect(6), Answer(1, "to the third"));
    const SizedRecord first = await_record(module().queue(), class_cwmp);
    EXPECT_EQ(first.record.result(), -9);
    EXPECT_EQ(first.payload(), "no");
}

TEST_F(ManagementRequest, IsRefusedWhenTheServerLeavesWithoutAnAnswer) {
    const std::string gone = "module cannot be reached: ZAN_CWMP";
    const auto server = another_module("ZAN_CWMP");
    module().send(module().request(class_cwmp, 5, "x"));
    ASSERT_EQ(server->announce(cmd_unregister).record.result(), 1);
    EXPECT_TRUE(same_record(await_record(module().queue(), class_cwmp),
                            module().answer(class_cwmp, 5, -120, gone)));
    // The same when it dies, which shows once somebody writes to its queue.
    server->announce(cmd_register);
    module().send(module().request(class_cwmp, 5, "x"));
    EXPECT_EQ(value("/zansim/modules"), "3");
    server->remove_queue();
    EXPECT_EQ(zan_do_cwmp_request(6, "y", 1), 1);
    EXPECT_EQ(collect(6).first, -108);
    EXPECT_TRUE(same_record(await_record(module().queue(), class_cwmp),
                            module().answer(class_cwmp, 5, -120, gone)));
}

TEST_F(ManagementRequest, BeyondThoseWhoMayWaitDoesNotReachTheServer) {
    const auto server = another_module("ZAN_CWMP");
    for (int i = 0; i < 1024; ++i) {
        module().send(module().request(class_cwmp, 5, "x"));
        ASSERT_EQ(await_record(server->queue(), class_cwmp).payload(), "x") << i;
    }
    EXPECT_TRUE(
        same_record(module().call(class_cwmp, 5, "x"),
                    module().answer(class_cwmp, 5, -120,
                                    "already 1024 requests to ZAN_CWMP without an answer")));
    EXPECT_EQ(queue_length(server->queue()), 0);
}

TEST_F(ManagementRequest, IsRefusedWhenTheServerDiesAndLeavesItsQueue) {
    const RawModule server(zansim(), "ZAN_CWMP");
    const pid_t process = fork();
    if (process == 0) {
        server.announce(cmd_register);
        await_record(server.queue(), class_cwmp);
        _exit(0);
    }
    ASSERT_TRUE(eventually([] { return value("/zansim/modules") == "3"; }));
    module().send(module().request(class_cwmp, 5, "x"));
    EXPECT_EQ(waitpid(process, nullptr, 0), process);
    EXPECT_TRUE(
        same_record(await_record(module().queue(), class_cwmp),
                    module().answer(class_cwmp, 5, -120, "module cannot be reached: ZAN_CWMP")));
    EXPECT_EQ(value("/zansim/modules"), "2");
    EXPECT_TRUE(queue_exists(server.queue()));
}

TEST_F(ManagementRequest, IsRefusedWhenTheServerDiesBeforeItReceivesARequest) {
    const RawModule server(zansim(), "ZAN_CWMP");
    const pid_t process = fork();
    if (process == 0) {
        server.announce(cmd_register);
        _exit(0);
    }
    EXPECT_EQ(waitpid(process, nullptr, 0), process);
    module().send(module().request(class_cwmp, 5, "x"));
    EXPECT_TRUE(
        same_record(await_record(module().queue(), class_cwmp),
                    module().answer(class_cwmp, 5, -120, "module cannot be reached: ZAN_CWMP")));
}

TEST_F(ManagementRequest, IsRefusedWhenTheAnswerTakesTooLong) {
    zan_unregister("client", 0);
    serve(tree_file("{}"), {"--cwmp-timeout", "1"});
    const auto server = another_module("ZAN_CWMP");
    EXPECT_TRUE(
        same_record(module().call(class_cwmp, 5, "x"),
                    module().answer(class_cwmp, 5, -120, "no answer from ZAN_CWMP within 1 s")));
    server->send(server->request(class_cwmp, 5, "too late"));
    EXPECT_EQ(value("/zansim/modules"), "3"); // it serves on
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(ManagementRequest, OfWhomHasGoneLeavesRoomForOthers) {
    const auto server = another_module("ZAN_CWMP");
    {
        const RawModule stranger(zansim(), "STRANGER");
        for (int i = 0; i < 1024; ++i) {
            stranger.send(stranger.request(class_cwmp, 5, "x"));
            ASSERT_EQ(await_record(server->queue(), class_cwmp).payload(), "x") << i;
        }
    }
    EXPECT_TRUE(eventually([&] {
        module().send(module().request(class_cwmp, 5, "y"));
        value("/zansim/version"); // served behind it
        return queue_length(server->queue()) != 0;
    }));
}

TEST_F(ManagementRequest, WithoutServerOrScriptIsRefused) {
    EXPECT_TRUE(same_record(module().call(class_cwmp, 5, "x"),
                            module().answer(class_cwmp, 5, -108, "unknown module: ZAN_CWMP")));
}

TEST_F(ManagementRequest, IsAnsweredFromTheScriptWhileThereIsNoServer) {
    write_file("/tmp/zan_answers.json", R"([
        {"command": 5, "request": "get *", "text": "value"},
        {"command": 5, "arg": 1, "hex": "00ff0A"},
        {"command": 6, "result": -7, "text": "refused"},
        {"command": 7},
        {"request": "[ab]*", "text": "any command"}
    ])");
    zan_unregister("client", 0);
    serve(tree_file("{}"), {"--cwmp-answers", "/tmp/zan_answers.json"});
    EXPECT_EQ(ask(5, "get x"), Answer(1, "value"));
    EXPECT_EQ(ask(5, "set x"), Answer(0, std::string("\0\xff\n", 3)));
    EXPECT_EQ(ask(6, ""), Answer(-7, ""));
    EXPECT_EQ(ask(99, "beta"), Answer(1, "any command"));
    EXPECT_EQ(ask(99, "gamma"), Answer(-108, ""));
    EXPECT_TRUE(same_record(module().call(class_cwmp, 7, ""), module().answer(class_cwmp, 7, 1)));
    const auto server = another_module("ZAN_CWMP");
    module().send(module().request(class_cwmp, 5, "get x"));
    EXPECT_EQ(await_record(server->queue(), class_cwmp).payload(), "get x");
}

TEST_F(ManagementRequest, OfAScriptWithAMistakeKeepsZansimFromStarting) {
    zansim().stop();
    write_file("/tmp/zan_answers.json", R"([{"comand": 5}])");
    Program program({zansim_path(), "--cwmp-answers", "/tmp/zan_answers.json", tree_file("{}")});
    EXPECT_EQ(program.wait(), 1);
    EXPECT_NE(program.error().find(
                  "zansim: /tmp/zan_answers.json: answer 1: unknown member \"comand\"\n"),
              std::string::npos)
        << program.error();
}

} // namespace

} // namespace zan::test
