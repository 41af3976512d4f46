// SPDX-License-Identifier: MIT
#include "sim/start_test.h"

#include <unistd.h>

#include <csignal>

namespace zan::test {

namespace {

TEST_F(Start, PrintsReadyWithQueuesAndParameters) {
    start(simple);
    EXPECT_EQ(zansim().program().output(),
              "zansim: ready (process " + std::to_string(zansim().pid()) + ", queues " +
                  std::to_string(zansim().request_queue()) + " and " +
                  std::to_string(zansim().answer_queue()) + ", port " +
                  std::to_string(std::stoi(read_file(port_file))) + ", 2 parameters)\n");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "");
}

TEST_F(Start, WritesTheQueueIds) {
    start(simple);
    EXPECT_EQ(read_file(request_file), std::to_string(zansim().request_queue()) + "\n");
    EXPECT_EQ(read_file(answer_file), std::to_string(zansim().answer_queue()) + "\n");
    EXPECT_TRUE(queue_exists(zansim().request_queue()));
    EXPECT_TRUE(queue_exists(zansim().answer_queue()));
}

TEST_F(Start, EndsCleanlyOnEachTerminationSignal) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        start(simple);
        zansim().program().signal(number);
        EXPECT_EQ(zansim().program().wait(), 0) << "signal " << number;
        expect_nothing_left();
    }
}

TEST_F(Start, EndsCleanlyWhileBusy) {
    start(simple);
    for (int i = 0; i < 100; ++i)
        module().send(module().request(class_cfg, cmd_get, "/a/b"));
    EXPECT_EQ(zansim().stop(), 0);
    expect_nothing_left();
}

TEST_F(Start, FailsWhenItsQueueIsRemoved) {
    start(simple);
    remove_queue(zansim().request_queue());
    EXPECT_EQ(zansim().program().wait(), 1);
    EXPECT_EQ(errors(), "zansim: the request queue was removed\n");
    expect_nothing_left();
}

TEST_F(Start, RefusesAnUnreadableTree) {
    expect_failure({"/tmp/zan_none.json"}, 1,
                   "zansim: /tmp/zan_none.json: cannot be read: No such file or directory\n");
    write_file("/tmp/zan_bad.json", "{\n  \"a\": 1.5\n}");
    expect_failure({"/tmp/zan_bad.json"}, 1, "zansim: /tmp/zan_bad.json: /a: not a whole number\n");
    EXPECT_FALSE(file_exists(request_file));
}

TEST_F(Start, RefusesAnUnwritableTraceFile) {
    expect_failure({"--trace-json", "/tmp/zan_none/trace", simple}, 1,
                   "zansim: /tmp/zan_none/trace: cannot be written: No such file or directory\n");
}

TEST_F(Start, ReportsAnInvalidCommandLine) {
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{}, {simple, "more"}, {"--nope", simple}, {"--save"}}) {
        std::vector<std::string> command{zansim_path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Program program(command);
        EXPECT_EQ(program.wait(), 2);
        EXPECT_THAT(
            program.error(),
            testing::MatchesRegex("zansim: [^\n]+\nRun with --help for more information.\n"));
        EXPECT_EQ(program.output(), "");
    }
}

TEST_F(Start, PrintsHelpAndVersion) {
    Program help({zansim_path(), "--help"});
    EXPECT_EQ(help.wait(), 0);
    for (const char *const option :
         {"TREE", "--save", "--trace", "--trace-json", "--directory", "--allow-shell",
          "--cwmp-answers", "--cwmp-timeout", "--fault", "--fault-file", "--seed", "--version"})
        EXPECT_NE(help.output().find(option), std::string::npos) << option;
    EXPECT_THAT(help.output(), testing::HasSubstr("\nUsage: zansim [OPTIONS] TREE\n"));
    EXPECT_THAT(help.output(), testing::HasSubstr("\n  TREE                        Tree"));
    EXPECT_THAT(help.output(), testing::HasSubstr("\n\nExit codes: 0 ended by a signal"));
    Program version({zansim_path(), "--version"});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_THAT(version.output(), testing::MatchesRegex("zansim [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(Start, RefusesToRunWithAnotherZansim) {
    start(simple);
    expect_failure({simple}, 1,
                   "zansim: zansim is running already: process " + std::to_string(zansim().pid()) +
                       "\n");
    expect_value("/a/b", "1");
}

TEST_F(Start, LetsOnlyOneOfTwoConcurrentStartsSucceed) {
    for (int round = 0; round < 5; ++round) {
        Program one({zansim_path(), simple});
        Program two({zansim_path(), simple});
        const bool one_serves = one.read_until("ready");
        Program &winner = one_serves ? one : two;
        Program &loser = one_serves ? two : one;
        EXPECT_TRUE(winner.read_until("ready"));
        EXPECT_EQ(loser.wait(), 1);
        winner.signal(SIGTERM);
        EXPECT_EQ(winner.wait(), 0);
    }
}

TEST_F(Start, RemovesTheQueuesOfAKilledRun) {
    start(simple);
    const std::string request = std::to_string(zansim().request_queue());
    const std::string answer = std::to_string(zansim().answer_queue());
    const int old_queue = zansim().request_queue();
    zansim().program().signal(SIGKILL);
    EXPECT_EQ(zansim().program().wait(), 128 + SIGKILL);
    EXPECT_TRUE(queue_exists(old_queue));
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "zansim: cleared what a killed run left: queue " + request + ", queue " +
                            answer + "\n");
    EXPECT_FALSE(queue_exists(old_queue));
    expect_nothing_left();
}

TEST_F(Start, RemovesItsOwnQueuesEvenIfTheProcessIdIsReused) {
    start(simple);
    const int request = zansim().request_queue();
    const int answer = zansim().answer_queue();
    zansim().program().signal(SIGKILL);
    zansim().program().wait();
    // As if this very process had got the number of the killed one.
    raw_send(request, Fields{.mtype = 1});
    raw_receive(request);
    write_file(lock_file, std::to_string(getpid()) + " " + std::to_string(request) + " " +
                              std::to_string(answer) + "\n");
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_FALSE(queue_exists(request));
}

TEST_F(Start, RemovesTheQueuesOfAnotherDeadDaemon) {
    const OtherDaemon other;
    other.serve_and_die();
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_FALSE(queue_exists(other.requests.id()));
    EXPECT_FALSE(queue_exists(other.answers.id()));
}

TEST_F(Start, IgnoresFilesOfRemovedQueues) {
    write_file(request_file, "2147483647");
    write_file(answer_file, "no number");
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "");
}

TEST_F(Start, RefusesToRunWithAnotherLiveDaemon) {
    const OtherDaemon other;
    other.serve();
    const std::string id = std::to_string(other.requests.id());
    expect_failure({simple}, 1,
                   "zansim: a daemon is running: process " + std::to_string(getpid()) +
                       " serves queue " + id + " of /tmp/zan_qid\n");
    EXPECT_TRUE(queue_exists(other.requests.id()));
    EXPECT_TRUE(queue_exists(other.answers.id()));
    EXPECT_EQ(read_file(request_file), id);
}

TEST_F(Start, RefusesIfTheProcessOfAQueueIsUnknown) {
    const OtherDaemon other;
    const std::string request = std::to_string(other.requests.id());
    expect_failure({simple}, 1,
                   "zansim: queue " + request +
                       " of /tmp/zan_qid exists and its process is not known: if no daemon runs, "
                       "clear it with: ipcrm -q " +
                       request + "\n");
    EXPECT_TRUE(queue_exists(other.requests.id()));
    unlink(request_file);
    const std::string answer = std::to_string(other.answers.id());
    expect_failure({simple}, 1,
                   "zansim: queue " + answer +
                       " of /tmp/zan_req_qid exists and its process is not known: if no daemon "
                       "runs, clear it with: ipcrm -q " +
                       answer + "\n");
    EXPECT_TRUE(queue_exists(other.answers.id()));
}

TEST_F(Start, KeepsTheFilesOfALaterDaemon) {
    start(simple);
    write_file(request_file, "123456");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(read_file(request_file), "123456");
    EXPECT_FALSE(file_exists(answer_file));
    unlink(request_file);
}

TEST_F(Start, DoesNotWriteThroughASymbolicLinkInTmp) {
    write_file("/tmp/zan_precious", "precious");
    ASSERT_EQ(symlink("/tmp/zan_precious", request_file), 0);
    start(simple);
    EXPECT_EQ(read_file("/tmp/zan_precious"), "precious");
    expect_value("/a/b", "1");
}

} // namespace

} // namespace zan::test
