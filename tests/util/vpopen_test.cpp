// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/sandbox.h"
#include "support/worker.h"
#include "util/process_fixture.h"

#include <zan.h>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <ostream>
#include <vector>

namespace zan::test {
namespace {

using Vpopen = ProcessTest;
using Vpclose = ProcessTest;

// ---- open_max --------------------------------------------------------------

TEST_F(Vpopen, OpenMaxIsTheLimitOfTheFirstCall) {
    const LimitedTo limited(RLIMIT_NOFILE, 77);
    StdoutCapture output;
    EXPECT_EQ(open_max(), 77);
    const LimitedTo further(RLIMIT_NOFILE, 66);
    EXPECT_EQ(open_max(), 77);
    EXPECT_EQ(output.stop(), "");
}

// ---- vpopen ----------------------------------------------------------------

TEST_F(Vpopen, ReadsWhatACommandPrints) {
    FILE *stream = vpopen("echo first; echo second", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "first\nsecond\n");
    EXPECT_EQ(vpclose(stream), 0);
}

TEST_F(Vpopen, CallsTheShellSh) {
    FILE *stream = vpopen("echo $0", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "sh\n");
    EXPECT_EQ(vpclose(stream), 0);
}

TEST_F(Vpopen, WritesWhatACommandReads) {
    FILE *stream = vpopen(("cat > " + path("copy")).c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_GT(std::fputs("to the command", stream), 0);
    EXPECT_EQ(vpclose(stream), 0);
    EXPECT_EQ(read_file(path("copy")), "to the command");
}

TEST_F(Vpopen, LeavesTheOtherStandardStreamsToTheCommand) {
    StdoutCapture output;
    StderrCapture error;
    FILE *stream = vpopen("cat; echo complaint >&2", "w");
    ASSERT_NE(stream, nullptr);
    std::fputs("passed on\n", stream);
    EXPECT_EQ(vpclose(stream), 0);
    EXPECT_EQ(output.stop(), "passed on\n");
    EXPECT_EQ(error.text(), "complaint\n");
}

class BadMode : public ProcessTest, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Modes, BadMode,
                         testing::Values("rw", "x", "", "re", "R", "r ",
                                         static_cast<const char *>(nullptr)));

TEST_P(BadMode, IsRefusedAndStartsNothing) {
    const auto before = open_descriptors();
    errno = 0;
    EXPECT_EQ(vpopen(("touch " + path("started")).c_str(), GetParam()), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(has_children());
    EXPECT_FALSE(file_exists(path("started")));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Vpopen, RefusesANullCommand) {
    errno = 0;
    EXPECT_EQ(vpopen(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Vpopen, KeepsOneDescriptorPerStreamAndNoneAfterwards) {
    const auto before = open_descriptors();
    FILE *reading = vpopen("true", "r");
    FILE *writing = vpopen("cat", "w");
    ASSERT_NE(reading, nullptr);
    ASSERT_NE(writing, nullptr);
    EXPECT_EQ(open_descriptors().size(), before.size() + 2);
    EXPECT_EQ(vpclose(reading), 0);
    EXPECT_EQ(vpclose(writing), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(has_children());
}

TEST_F(Vpopen, FailsWithoutADescriptorToSpare) {
    ASSERT_GT(open_max(), 0);
    const auto before = open_descriptors();
    {
        const LimitedTo full(RLIMIT_NOFILE, static_cast<rlim_t>(*before.rbegin()) + 1);
        std::vector<int> fillers;
        for (int fd = dup(STDERR_FILENO); fd >= 0; fd = dup(STDERR_FILENO))
            fillers.push_back(fd);
        errno = 0;
        EXPECT_EQ(vpopen("true", "r"), nullptr);
        EXPECT_EQ(errno, EMFILE);
        for (const int fd : fillers)
            close(fd);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(has_children());
}

// The table of commands is as long as the bound was when it was asked for.
TEST_F(Vpopen, FailsWhenItsDescriptorLiesBeyondTheBound) {
    const int highest = *open_descriptors().rbegin();
    int bound = 0;
    {
        const LimitedTo limited(RLIMIT_NOFILE, static_cast<rlim_t>(highest) + 8);
        bound = open_max();
    }
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < bound - 1)
        fillers.push_back(dup(STDERR_FILENO));
    const auto before = open_descriptors();
    EXPECT_EQ(vpopen("true", "r"), nullptr);
    EXPECT_EQ(vpopen("true", "w"), nullptr);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(has_children());
    for (const int fd : fillers)
        close(fd);
}

TEST_F(Vpopen, KeepsNoDescriptorWhenNoProcessCanBeStarted) {
    ZAN_SKIP_WITHOUT_ROOT();
    const auto before = open_descriptors();
    // Root is not subject to the limit; a user without processes is.
    if (setresuid(65534, 65534, 0) != 0)
        GTEST_SKIP() << "no second user in this namespace";
    {
        const LimitedTo none(RLIMIT_NPROC, 0);
        errno = 0;
        EXPECT_EQ(vpopen("true", "r"), nullptr);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(vpopen("true", "w"), nullptr);
    }
    EXPECT_EQ(setresuid(0, 0, 0), 0);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Vpopen, EndsWith127WhenTheShellCannotBeStarted) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ASSERT_EQ(mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
    FILE *stream = vpopen("echo hello", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "");
    EXPECT_EQ(vpclose(stream), 127 << 8);
}

// ---- descriptors of other commands -----------------------------------------

TEST_F(Vpopen, KeepsEarlierStreamsFromLaterCommands) {
    const std::string ended = path("ended");
    const std::string gate = make_fifo("gate");
    FILE *first = vpopen(("cat; touch " + ended).c_str(), "w");
    FILE *second = vpopen(("read line < " + gate).c_str(), "w");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);

    // The first command sees the end of its input although the second still runs.
    int first_status = -1;
    Worker closing([&] { first_status = vpclose(first); });
    EXPECT_TRUE(closing.wait_until_done());
    write_file(gate, "go\n");
    EXPECT_TRUE(closing.wait_until_done());
    EXPECT_EQ(first_status, 0);
    EXPECT_TRUE(file_exists(ended));
    EXPECT_EQ(vpclose(second), 0);
}

// A stream that the module has made inheritable is closed all the same.
TEST_F(Vpopen, ClosesInheritableStreamsOfEarlierCommands) {
    FILE *first = vpopen("cat", "w");
    ASSERT_NE(first, nullptr);
    const int fd = fileno(first);
    ASSERT_EQ(fcntl(fd, F_SETFD, 0), 0);
    FILE *second = vpopen(probe(fd).c_str(), "r");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(read_all(second), "closed\n");
    EXPECT_EQ(vpclose(second), 0);
    EXPECT_EQ(vpclose(first), 0);
}

TEST_F(Vpopen, LeavesOtherInheritableDescriptorsToTheCommand) {
    const int fd = fcntl(STDERR_FILENO, F_DUPFD, 20);
    FILE *stream = vpopen(probe(fd).c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "open\n");
    EXPECT_EQ(vpclose(stream), 0);
    close(fd);
}

TEST_F(Vpopen, ForgetsAStreamOnceItIsClosed) {
    FILE *stream = vpopen("true", "r");
    ASSERT_NE(stream, nullptr);
    const int fd = fileno(stream);
    EXPECT_EQ(vpclose(stream), 0);
    ASSERT_EQ(dup2(STDERR_FILENO, fd), fd);
    stream = vpopen(probe(fd).c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "open\n");
    EXPECT_EQ(vpclose(stream), 0);
    close(fd);
}

// What happens to a module that closes a command's stream behind the back of
// vpclose: the descriptor number still counts as the command's.
TEST_F(Vpopen, TakesADescriptorForTheCommandsUntilVpcloseIsCalled) {
    FILE *stream = vpopen("exit 5", "r");
    ASSERT_NE(stream, nullptr);
    const int fd = fileno(stream);
    std::fclose(stream);

    FILE *unrelated = std::fopen("/dev/null", "r");
    ASSERT_EQ(fileno(unrelated), fd);
    FILE *later = vpopen(probe(fd).c_str(), "r");
    ASSERT_NE(later, nullptr);
    EXPECT_EQ(read_all(later), "closed\n");
    EXPECT_EQ(vpclose(later), 0);
    EXPECT_EQ(vpclose(unrelated), 5 << 8);
}

// ---- modules without standard streams --------------------------------------

// The pipe lands on the lowest free descriptors, which may be the very ones the
// command needs.
struct ClosedStreams {
    const char *name;
    std::vector<int> closed;
};

std::ostream &operator<<(std::ostream &out, const ClosedStreams &streams) {
    return out << streams.name;
}

class WithoutStandardStreams : public ProcessTest,
                               public testing::WithParamInterface<ClosedStreams> {
protected:
    void close_streams() {
        for (const int fd : GetParam().closed)
            replaced_.push_back(
                std::make_unique<DescriptorReplaced>(fd, DescriptorReplaced::nothing));
    }
    void restore_streams() { replaced_.clear(); }

private:
    std::vector<std::unique_ptr<DescriptorReplaced>> replaced_;
};
INSTANTIATE_TEST_SUITE_P(Closed, WithoutStandardStreams,
                         testing::Values(ClosedStreams{"Input", {0}}, ClosedStreams{"Output", {1}},
                                         ClosedStreams{"InputAndOutput", {0, 1}},
                                         ClosedStreams{"All", {0, 1, 2}}),
                         [](const auto &closed) { return closed.param.name; });

TEST_P(WithoutStandardStreams, ReadsFromACommand) {
    close_streams();
    FILE *stream = vpopen("echo hello; exit 4", "r");
    const std::string text = stream != nullptr ? read_all(stream) : "no stream";
    const int status = vpclose(stream);
    restore_streams();
    EXPECT_EQ(text, "hello\n");
    EXPECT_EQ(status, 4 << 8);
}

TEST_P(WithoutStandardStreams, WritesToACommand) {
    close_streams();
    FILE *stream = vpopen(("cat > " + path("copy") + "; exit 4").c_str(), "w");
    if (stream != nullptr)
        std::fputs("hello", stream);
    const int status = vpclose(stream);
    restore_streams();
    EXPECT_EQ(read_file(path("copy")), "hello");
    EXPECT_EQ(status, 4 << 8);
}

TEST_P(WithoutStandardStreams, ReadsFromASecondCommand) {
    close_streams();
    FILE *first = vpopen(("cat > " + path("copy")).c_str(), "w");
    FILE *second = vpopen("echo hello", "r");
    const std::string text = second != nullptr ? read_all(second) : "no stream";
    if (first != nullptr)
        std::fputs("first", first);
    const int second_status = vpclose(second);
    const int first_status = vpclose(first);
    restore_streams();
    EXPECT_EQ(text, "hello\n");
    EXPECT_EQ(second_status, 0);
    EXPECT_EQ(first_status, 0);
    EXPECT_EQ(read_file(path("copy")), "first");
}

TEST_P(WithoutStandardStreams, WritesToASecondCommand) {
    close_streams();
    FILE *first = vpopen("echo hello", "r");
    FILE *second = vpopen(("cat > " + path("copy")).c_str(), "w");
    if (second != nullptr)
        std::fputs("second", second);
    const int second_status = vpclose(second);
    const std::string text = first != nullptr ? read_all(first) : "no stream";
    const int first_status = vpclose(first);
    restore_streams();
    EXPECT_EQ(text, "hello\n");
    EXPECT_EQ(second_status, 0);
    EXPECT_EQ(first_status, 0);
    EXPECT_EQ(read_file(path("copy")), "second");
}

// ---- vpclose ---------------------------------------------------------------

TEST_F(Vpclose, ReturnsTheRawWaitStatus) {
    EXPECT_EQ(vpclose(vpopen("exit 3", "r")), 3 << 8);
    EXPECT_EQ(vpclose(vpopen("/no/such/command 2>/dev/null", "r")), 127 << 8);
    EXPECT_EQ(vpclose(vpopen("kill -9 $$", "r")), SIGKILL);
    EXPECT_EQ(vpclose(vpopen("kill -15 $$", "w")), SIGTERM);
}

TEST_F(Vpclose, WaitsForItsOwnCommand) {
    FILE *first = vpopen("exit 1", "r");
    FILE *second = vpopen("exit 2", "r");
    FILE *third = vpopen("exit 3", "r");
    EXPECT_EQ(vpclose(second), 2 << 8);
    EXPECT_EQ(vpclose(third), 3 << 8);
    EXPECT_EQ(vpclose(first), 1 << 8);
    EXPECT_FALSE(has_children());
}

TEST_F(Vpclose, RefusesOtherStreamsAndLeavesThemOpen) {
    for (const bool table_exists : {false, true}) {
        SCOPED_TRACE(table_exists);
        if (table_exists) {
            EXPECT_EQ(vpclose(vpopen("true", "r")), 0);
        }
        FILE *stream = std::fopen("/dev/zero", "r");
        ASSERT_NE(stream, nullptr);
        errno = EBUSY;
        EXPECT_EQ(vpclose(stream), -1);
        EXPECT_EQ(errno, 0);
        EXPECT_NE(fcntl(fileno(stream), F_GETFD), -1);
        EXPECT_EQ(std::fgetc(stream), 0);
        std::fclose(stream);
    }
}

TEST_F(Vpclose, RefusesNullAndStreamsWithoutDescriptor) {
    EXPECT_EQ(vpclose(vpopen("true", "r")), 0);
    EXPECT_EQ(vpclose(nullptr), -1);
    char memory[4] = "abc";
    FILE *stream = fmemopen(memory, sizeof memory, "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(vpclose(stream), -1);
    EXPECT_EQ(std::fgetc(stream), 'a');
    std::fclose(stream);
}

TEST_F(Vpclose, GoesOnWaitingWhenSignalsInterrupt) {
    const std::string closed = path("closed");
    const std::string gate = make_fifo("gate");
    FILE *stream =
        vpopen(("cat; touch " + closed + "; read line < " + gate + "; exit 6").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    int status = -1;
    Worker closing([&] { status = vpclose(stream); });
    for (int signals = 0; signals < 3; ++signals) {
        ASSERT_TRUE(closing.wait_until_blocked());
        closing.interrupt();
    }
    EXPECT_TRUE(closing.wait_until_blocked());
    write_file(gate, "go\n");
    ASSERT_TRUE(closing.wait_until_done());
    EXPECT_EQ(status, 6 << 8);
    EXPECT_TRUE(file_exists(closed));
}

TEST_F(Vpclose, FailsWhenSomebodyElseHasWaitedForTheCommand) {
    FILE *stream = vpopen("exit 3", "r");
    ASSERT_NE(stream, nullptr);
    const int fd = fileno(stream);
    int status = 0;
    ASSERT_GT(waitpid(-1, &status, 0), 0);
    EXPECT_EQ(vpclose(stream), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Vpclose, FailsWhenTheLastWriteFails) {
    std::signal(SIGPIPE, SIG_IGN);
    FILE *stream = vpopen("exit 0", "w");
    ASSERT_NE(stream, nullptr);
    std::fputs("never read", stream);
    pollfd gone{.fd = fileno(stream), .events = 0, .revents = 0};
    ASSERT_EQ(poll(&gone, 1, 30000), 1);
    EXPECT_EQ(vpclose(stream), -1);
    EXPECT_EQ(errno, EPIPE);
}

} // namespace
} // namespace zan::test
