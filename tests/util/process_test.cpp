// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "util/process_fixture.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace zan::test {
namespace {

using System = ProcessTest;
using Popen = ProcessTest;

int exited_with(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// ---- zan_system ------------------------------------------------------------

TEST_F(System, ReturnsTheRawWaitStatus) {
    EXPECT_EQ(zan_system("true"), 0);
    EXPECT_EQ(zan_system("exit 3;"), 3 << 8);
    EXPECT_EQ(zan_system("kill -9 $$;"), SIGKILL);
}

TEST_F(System, ShowsStandardOutputAndNothingOfStandardError) {
    StdoutCapture output;
    StderrCapture error;
    EXPECT_EQ(zan_system("sh -c 'echo seen; echo hidden >&2'"), 0);
    EXPECT_EQ(output.stop(), "seen\n");
    EXPECT_EQ(error.text(), "");
}

TEST_F(System, HidesThatACommandDoesNotExist) {
    StderrCapture error;
    EXPECT_EQ(exited_with(zan_system("/no/such/command")), 127);
    EXPECT_EQ(error.text(), "");
}

TEST_F(System, CutsTheCommandLineAt1023Characters) {
    const std::string start = "printf %s ";
    StdoutCapture output;
    EXPECT_EQ(zan_system((start + std::string(3000, 'a')).c_str()), 0);
    EXPECT_EQ(output.stop(), std::string(1023 - start.size(), 'a'));
}

TEST_F(System, FailsWithoutMemoryForItsBuffer) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer ends a process that runs out of memory";
#else
    const LimitedTo no_more(RLIMIT_AS, 0);
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    if (limit.rlim_cur != 0)
        GTEST_SKIP() << "the emulator does not limit memory";
    // Takes what the heap still has, each block holding the one before it.
    void *taken = nullptr;
    while (void *block = std::malloc(1024)) {
        std::memcpy(block, &taken, sizeof taken);
        taken = block;
    }
    const int result = zan_system("exit 3;");
    while (taken != nullptr) {
        void *block = taken;
        std::memcpy(&taken, block, sizeof taken);
        std::free(block);
    }
    EXPECT_EQ(result, -1);
#endif
}

TEST_F(System, RefusesNull) {
    EXPECT_EQ(zan_system(nullptr), -1);
}

// ---- zan_popen -------------------------------------------------------------

TEST_F(Popen, StoresTheFirstLineOnly) {
    char buffer[64] = "before";
    EXPECT_EQ(zan_popen("echo a; echo b", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "a");
    EXPECT_FALSE(has_children());
}

TEST_F(Popen, StoresALineWithoutEnd) {
    char buffer[64] = "before";
    EXPECT_EQ(zan_popen("printf abc", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(Popen, StoresAnEmptyLine) {
    char buffer[64] = "before";
    EXPECT_EQ(zan_popen("echo; echo b", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST_F(Popen, CutsTheLineAtTheSize) {
    const struct {
        int size;
        const char *stored;
    } rows[] = {{1, ""}, {2, "a"}, {3, "ab"}, {4, "abc"}, {5, "abcd"}, {6, "abcd"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        char buffer[8] = "before!";
        EXPECT_EQ(zan_popen("echo abcd", buffer, row.size), 0);
        EXPECT_STREQ(buffer, row.stored);
        EXPECT_EQ(std::memcmp(buffer + row.size, &"before!"[row.size],
                              sizeof buffer - static_cast<std::size_t>(row.size)),
                  0);
    }
}

TEST_F(Popen, WritesNothingIntoABufferWithoutRoom) {
    for (const int size : {0, -1, -2147483647 - 1}) {
        SCOPED_TRACE(size);
        const std::string ran = path("ran" + std::to_string(size));
        char buffer[8] = "before";
        EXPECT_EQ(zan_popen(("touch " + ran + "; echo abcd").c_str(), buffer, size), 0);
        EXPECT_STREQ(buffer, "before");
        EXPECT_TRUE(file_exists(ran));
        EXPECT_FALSE(has_children());
    }
    EXPECT_EQ(zan_popen("echo abcd", nullptr, 8), 0);
}

TEST_F(Popen, LeavesTheBufferWhenTheCommandPrintsNothing) {
    for (const int size : {1, 2, 64}) {
        SCOPED_TRACE(size);
        char buffer[64] = "before";
        EXPECT_EQ(zan_popen("true", buffer, size), 0);
        EXPECT_STREQ(buffer, "before");
        EXPECT_EQ(zan_popen("/no/such/command 2>/dev/null", buffer, size), 0);
        EXPECT_STREQ(buffer, "before");
    }
}

// More than a pipe holds: a command that is not read ends by SIGPIPE at the latest.
TEST_F(Popen, DoesNotHangOnACommandThatPrintsWithoutEnd) {
    char buffer[64] = "";
    EXPECT_EQ(zan_popen("yes 2>/dev/null", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "y");
    EXPECT_FALSE(has_children());
}

TEST_F(Popen, ReportsACommandThatCannotBeStarted) {
    ASSERT_GT(open_max(), 0);
    StdoutCapture output;
    StderrCapture error;
    char buffer[64] = "before";
    int result = -1;
    {
        const LimitedTo none(RLIMIT_NOFILE, 3);
        result = zan_popen("echo 100%d", buffer, sizeof buffer);
    }
    EXPECT_EQ(result, 0);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(output.stop(), "### zan_popen Error: command=echo 100%d\n");
    EXPECT_EQ(error.text(), "Error: Too many open files\n");
}

TEST_F(Popen, ReportsANullCommand) {
    StdoutCapture output;
    StderrCapture error;
    char buffer[64] = "before";
    EXPECT_EQ(zan_popen(nullptr, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(output.stop(), "### zan_popen Error: command=(null)\n");
    EXPECT_EQ(error.text(), "Error: Invalid argument\n");
}

} // namespace
} // namespace zan::test
