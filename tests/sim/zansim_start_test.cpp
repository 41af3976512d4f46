// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"
#include "support/sandbox.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace zan::test {

namespace {

constexpr char request_file[] = "/tmp/zan_qid";
constexpr char answer_file[] = "/tmp/zan_req_qid";
constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";
constexpr char lock_file[] = "/tmp/zan_sim.lock";

class Start : public ZansimTest {
protected:
    Start() { autostart_ = false; }

    // Runs a zansim that must not get as far as serving.
    void expect_failure(const std::vector<std::string> &arguments, int status,
                        const std::string &error) {
        std::vector<std::string> command{zansim_path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Program program(command);
        EXPECT_EQ(program.wait(), status);
        EXPECT_EQ(program.error(), error);
    }

    void expect_nothing_left() {
        for (const char *const file :
             {request_file, answer_file, port_file, address_file, lock_file})
            EXPECT_FALSE(file_exists(file)) << file;
        EXPECT_FALSE(queue_exists(zansim().request_queue()));
        EXPECT_FALSE(queue_exists(zansim().answer_queue()));
    }

    const std::string simple = tree_file(R"({"a": {"b": 1, "c": 2}})");
};

// The queues of a daemon that is not zansim, with their files.
class OtherDaemon {
public:
    OtherDaemon() {
        write_file(request_file, std::to_string(requests.id()));
        write_file(answer_file, std::to_string(answers.id()));
    }
    ~OtherDaemon() {
        unlink(request_file);
        unlink(answer_file);
    }

    // Serves a record, as the process that calls it.
    void serve() const {
        raw_send(requests.id(), Fields{.mtype = 1});
        raw_receive(requests.id());
        raw_send(answers.id(), Fields{.mtype = 1});
    }

    // Serves a record in a process that has ended since.
    void serve_and_die() const {
        const pid_t pid = fork();
        if (pid == 0) {
            serve();
            _exit(0);
        }
        waitpid(pid, nullptr, 0);
    }

    RawQueue requests;
    RawQueue answers;
};

TEST_F(Start, SaysWhenItServesAndWhat) {
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

TEST_F(Start, EndsCleanlyWithEachSignalThatAsksForIt) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        start(simple);
        zansim().program().signal(number);
        EXPECT_EQ(zansim().program().wait(), 0) << "signal " << number;
        expect_nothing_left();
    }
}

TEST_F(Start, EndsCleanlyWhileItIsBusy) {
    start(simple);
    for (int i = 0; i < 100; ++i)
        module().send(module().request(class_cfg, cmd_get, "/a/b"));
    EXPECT_EQ(zansim().stop(), 0);
    expect_nothing_left();
}

TEST_F(Start, TellsWhenItsQueueIsTakenAway) {
    start(simple);
    remove_queue(zansim().request_queue());
    EXPECT_EQ(zansim().program().wait(), 1);
    EXPECT_EQ(errors(), "zansim: the request queue was removed\n");
    expect_nothing_left();
}

TEST_F(Start, RefusesATreeItCannotRead) {
    expect_failure({"/tmp/zan_none.json"}, 1,
                   "zansim: /tmp/zan_none.json: cannot be read: No such file or directory\n");
    write_file("/tmp/zan_bad.json", "{\n  \"a\": 1.5\n}");
    expect_failure({"/tmp/zan_bad.json"}, 1, "zansim: /tmp/zan_bad.json: /a: not a whole number\n");
    EXPECT_FALSE(file_exists(request_file));
}

TEST_F(Start, RefusesATraceFileItCannotWrite) {
    expect_failure({"--trace-json", "/tmp/zan_none/trace", simple}, 1,
                   "zansim: /tmp/zan_none/trace: cannot be written: No such file or directory\n");
}

TEST_F(Start, TellsAMistakeInTheCommandLine) {
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

TEST_F(Start, TellsItsOptionsAndItsVersion) {
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

TEST_F(Start, RefusesToRunBesideAnotherZansim) {
    start(simple);
    expect_failure({simple}, 1,
                   "zansim: zansim is running already: process " + std::to_string(zansim().pid()) +
                       "\n");
    expect_value("/a/b", "1");
}

TEST_F(Start, LetsOneOfTwoWinThatStartAtTheSameTime) {
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

TEST_F(Start, ClearsWhatAKilledRunLeft) {
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

TEST_F(Start, ClearsItsOwnLeftoversThoughTheProcessIdIsInUseAgain) {
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

// The lock file as somebody else may have left it: it names the queues of a daemon that
// is alive as those of a zansim that has ended.
class Forged : public Start {
protected:
    Forged() { other.serve(); }

    static void plant(const std::string &text, mode_t mode = 0644) {
        unlink(lock_file);
        write_file(lock_file, text);
        chmod(lock_file, mode);
    }

    void expect_disbelieved() {
        expect_failure({simple}, 1,
                       "zansim: a daemon is running: process " + std::to_string(getpid()) +
                           " serves queue " + std::to_string(other.requests.id()) +
                           " of /tmp/zan_qid\n");
        EXPECT_TRUE(queue_exists(other.requests.id()));
        EXPECT_TRUE(queue_exists(other.answers.id()));
    }

    const OtherDaemon other;
    const std::string text = std::to_string(getpid()) + " " + std::to_string(other.requests.id()) +
                             " " + std::to_string(other.answers.id()) + "\n";
};

TEST_F(Forged, TextThatIsNotAsZansimWritesItIsNotBelieved) {
    const std::string without_end = text.substr(0, text.size() - 1);
    for (const std::string &forged : {without_end, text + "x", without_end + "\x01\n", ' ' + text,
                                      text + std::string(1 << 20, ' ')}) {
        plant(forged);
        expect_disbelieved();
    }
}

TEST_F(Forged, TextThatOthersMayWriteIsNotBelieved) {
    plant(text, 0666);
    expect_disbelieved();
    plant(text, 0664);
    expect_disbelieved();
}

TEST_F(Forged, TextOfAnotherUserIsNotBelieved) {
    ZAN_SKIP_WITHOUT_ROOT();
    plant(text);
    if (chown(lock_file, 1, 1) != 0)
        GTEST_SKIP() << "there is no other user here";
    expect_disbelieved();
}

class LockFile : public Start {
protected:
    void expect_unusable(const std::string &why) {
        expect_failure({simple}, 1,
                       "zansim: /tmp/zan_sim.lock is " + why + ": if no zansim runs, remove it\n");
        EXPECT_FALSE(file_exists(request_file));
        ASSERT_EQ(remove(lock_file), 0);
    }
};

TEST_F(LockFile, OfAnotherKindIsNotUsed) {
    write_file("/tmp/zan_precious", "precious");
    ASSERT_EQ(symlink("/tmp/zan_precious", lock_file), 0);
    expect_unusable("a symbolic link");
    ASSERT_EQ(symlink("/tmp/zan_none", lock_file), 0);
    expect_unusable("a symbolic link");
    EXPECT_FALSE(file_exists("/tmp/zan_none"));
    ASSERT_EQ(link("/tmp/zan_precious", lock_file), 0);
    expect_unusable("a hard link to another file");
    ASSERT_EQ(mkfifo(lock_file, 0644), 0);
    expect_unusable("no regular file");
    EXPECT_EQ(read_file("/tmp/zan_precious"), "precious");
}

TEST_F(LockFile, MayHaveBeenLeftByAnotherUser) {
    ZAN_SKIP_WITHOUT_ROOT();
    write_file(lock_file, "1 2 3\n");
    if (chown(lock_file, 1, 1) != 0)
        GTEST_SKIP() << "there is no other user here";
    start(simple);
    struct stat state {};
    EXPECT_EQ(stat(lock_file, &state), 0);
    EXPECT_EQ(state.st_uid, geteuid());
    EXPECT_EQ(state.st_mode & 07777, 0644U);
    expect_failure({simple}, 1,
                   "zansim: zansim is running already: process " + std::to_string(zansim().pid()) +
                       "\n");
}

TEST_F(LockFile, ThatIsLockedTellsNoProcessThatItDoesNotKnow) {
    // Whatever it says: no such process, and no process at all.
    for (const char *const text : {"2147483647 2 3\n", "-1 2 3\n", "1 2 3", "garbage", ""}) {
        write_file(lock_file, text);
        const int fd = open(lock_file, O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        expect_failure({simple}, 1,
                       "zansim: zansim is running already: /tmp/zan_sim.lock is locked, and does "
                       "not tell by which process\n");
        close(fd);
    }
}

TEST_F(LockFile, AndTheOthersMayBeNamedPipes) {
    for (const char *const file : {request_file, answer_file})
        ASSERT_EQ(mkfifo(file, 0644), 0);
    start(simple);
    expect_value("/a/b", "1");
}

TEST_F(Start, ClearsWhatAnotherDaemonLeft) {
    const OtherDaemon other;
    other.serve_and_die();
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_FALSE(queue_exists(other.requests.id()));
    EXPECT_FALSE(queue_exists(other.answers.id()));
}

TEST_F(Start, IgnoresFilesWhoseQueuesAreGone) {
    write_file(request_file, "2147483647");
    write_file(answer_file, "no number");
    start(simple);
    expect_value("/a/b", "1");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "");
}

TEST_F(Start, RefusesToRunBesideAnotherLiveDaemon) {
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

TEST_F(Start, RefusesWhenItCannotTellWhoseQueueItIs) {
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

TEST_F(Start, LeavesTheFilesOfADaemonThatCameAfterIt) {
    start(simple);
    write_file(request_file, "123456");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(read_file(request_file), "123456");
    EXPECT_FALSE(file_exists(answer_file));
    unlink(request_file);
}

TEST_F(Start, DoesNotWriteThroughALinkInTmp) {
    write_file("/tmp/zan_precious", "precious");
    ASSERT_EQ(symlink("/tmp/zan_precious", request_file), 0);
    start(simple);
    EXPECT_EQ(read_file("/tmp/zan_precious"), "precious");
    expect_value("/a/b", "1");
}

class Limits : public Start {
protected:
    static void set_limit(const std::string &name, long value) {
        write_file("/proc/sys/kernel/" + name, std::to_string(value));
    }
    static long limit(const std::string &name) {
        return std::stol(read_file("/proc/sys/kernel/" + name));
    }

    // Makes the limit as unchangeable as it is for an ordinary user.
    static void freeze(const std::string &name) {
        const std::string stand_in = "/tmp/zan_" + name;
        const std::string real = "/proc/sys/kernel/" + name;
        write_file(stand_in, std::to_string(limit(name)));
        ASSERT_EQ(mount(stand_in.c_str(), real.c_str(), nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, real.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
                  0);
    }
};

TEST_F(Limits, AreRaisedWhenItMay) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    start(simple);
    EXPECT_EQ(limit("msgmax"), 65536);
    EXPECT_EQ(limit("msgmnb"), 1048576);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(zansim().program().error(), "zansim: raised kernel.msgmax from 8192 to 65536\n"
                                          "zansim: raised kernel.msgmnb from 16384 to 1048576\n");
}

TEST_F(Limits, AreLeftAloneWhenTheySuffice) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 35100);
    set_limit("msgmnb", 70200);
    start(simple);
    EXPECT_EQ(limit("msgmax"), 35100);
    EXPECT_EQ(limit("msgmnb"), 70200);
}

TEST_F(Limits, ThatCannotBeRaisedAreToldWithWhatToSet) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    freeze("msgmax");
    freeze("msgmnb");
    start(simple);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(zansim().program().error(),
              "zansim: values above 8092 bytes cannot pass: sysctl kernel.msgmax=65536 "
              "kernel.msgmnb=1048576\n");
}

TEST_F(Limits, ThatAreTooNarrowForAnAnswerMakeItARefusal) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    freeze("msgmax");
    freeze("msgmnb");
    start(tree_file("{\"long\": \"" + std::string(8093, 'x') + "\", \"fits\": \"" +
                    std::string(8092, 'x') + "\"}"));
    EXPECT_EQ(module().get("/fits").msgsz, 8192U);
    expect_refused(module().get("/long"), class_cfg, cmd_get, -115,
                   "answer of 8093 bytes is too long");
}

TEST_F(Limits, OfASingleQueueMakeAnAnswerARefusal) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    start(tree_file("{\"long\": \"" + std::string(20000, 'x') + "\"}"));
    set_limit("msgmnb", 16384);
    const RawModule narrow(zansim(), "NARROW");
    expect_refused(narrow.get("/long"), class_cfg, cmd_get, -115,
                   "answer of 20000 bytes is too long");
}

} // namespace

} // namespace zan::test
