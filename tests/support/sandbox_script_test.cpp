// SPDX-License-Identifier: MIT
//
// What scripts/sandbox removes where namespaces are refused.
#include "support/program.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace zan::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t other_user = 65534;

bool queue_exists(int id) {
    msqid_ds state{};
    return msgctl(id, IPC_STAT, &state) == 0;
}

bool segment_exists(int id) {
    shmid_ds state{};
    return shmctl(id, IPC_STAT, &state) == 0;
}

int make_queue() {
    return msgget(IPC_PRIVATE, IPC_CREAT | 0666);
}

int make_table() {
    return shmget(ftok("/tmp", 109), 4096, IPC_CREAT | 0666);
}

// What the action, done by another user, returns; -1 when there is no other.
int by_another_user(const std::function<int()> &action) {
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        const int result = setuid(other_user) == 0 ? action() : -1;
        _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    int result = -1;
    if (read(ends[0], &result, sizeof result) != sizeof result)
        result = -1;
    waitpid(pid, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return result;
}

// The script without namespaces, and a command that waits for its input to end.
class SharedSandbox : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_HOST_PROGRAMS();
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    }

    static Program start() {
        return Program(
            {ZAN_TEST_SANDBOX, "/bin/sh", "-c", "echo \"$ZAN_SANDBOX\"; read line || :"},
            {.env = {{"ZAN_SANDBOX_OPTIONS", ""}, {"ZAN_SANDBOX_REQUIRED", ""}, {"ZAN_BOARD", ""}},
             .keep_stdin = true,
             .host = true});
    }

    static void end(Program &program) {
        program.close_stdin();
        EXPECT_EQ(program.wait(), 0) << program.error();
    }
};

TEST_F(SharedSandbox, RemovesWhatItsUserLeft) {
    Program program = start();
    ASSERT_TRUE(program.read_until("shared\n"));
    const int queue = make_queue();
    const int table = make_table();
    ASSERT_GE(queue, 0);
    ASSERT_GE(table, 0);
    const char *const files[] = {"/tmp/zan_qid", "/tmp/zan.socket", "/tmp/A_0.msq",
                                 "/tmp/A_0.ls",  "/tmp/A.info",     "/tmp/ipc_used"};
    for (const char *const file : files)
        write_file(file, "");
    end(program);
    EXPECT_FALSE(queue_exists(queue));
    EXPECT_FALSE(segment_exists(table));
    for (const char *const file : files)
        EXPECT_FALSE(fs::exists(file)) << file;
}

TEST_F(SharedSandbox, LeavesWhatAnotherUserMade) {
    ZAN_SKIP_WITHOUT_ROOT();
    if (by_another_user([] { return 0; }) != 0)
        GTEST_SKIP() << "there is no other user here";
    Program program = start();
    ASSERT_TRUE(program.read_until("shared\n"));
    const int queue = by_another_user(make_queue);
    const int table = by_another_user(make_table);
    ASSERT_GE(queue, 0);
    ASSERT_GE(table, 0);
    const char *const file = "/tmp/zan_theirs";
    write_file(file, "");
    ASSERT_EQ(chown(file, other_user, other_user), 0);
    end(program);
    EXPECT_TRUE(queue_exists(queue));
    EXPECT_TRUE(segment_exists(table));
    EXPECT_TRUE(fs::exists(file));
}

TEST_F(SharedSandbox, LeavesWhatWasThereAndWhatIsNotTheLibrarys) {
    const int queue = make_queue();
    const int table = make_table();
    write_file("/tmp/zan_before", "");
    Program program = start();
    ASSERT_TRUE(program.read_until("shared\n"));
    const int segment = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    write_file("/tmp/notes", "");
    end(program);
    EXPECT_TRUE(queue_exists(queue));
    EXPECT_TRUE(segment_exists(table));
    EXPECT_TRUE(segment_exists(segment));
    EXPECT_TRUE(fs::exists("/tmp/zan_before"));
    EXPECT_TRUE(fs::exists("/tmp/notes"));
}

} // namespace
} // namespace zan::test
