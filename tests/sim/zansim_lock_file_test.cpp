// SPDX-License-Identifier: MIT
#include "sim/start_test.h"

#include "support/sandbox.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zan::test {

namespace {

// A lock file that another user has written: it names the queues of a live daemon as
// those of a zansim that has ended.
class ForgedLockFile : public Start {
protected:
    ForgedLockFile() { other.serve(); }

    static void plant(const std::string &text, mode_t mode = 0644) {
        unlink(lock_file);
        write_file(lock_file, text);
        chmod(lock_file, mode);
    }

    void expect_not_trusted() {
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

TEST_F(ForgedLockFile, InAnotherFormatIsNotTrusted) {
    const std::string without_end = text.substr(0, text.size() - 1);
    for (const std::string &forged : {without_end, text + "x", without_end + "\x01\n", ' ' + text,
                                      text + std::string(1 << 20, ' ')}) {
        plant(forged);
        expect_not_trusted();
    }
}

TEST_F(ForgedLockFile, ThatOthersMayWriteIsNotTrusted) {
    plant(text, 0666);
    expect_not_trusted();
    plant(text, 0664);
    expect_not_trusted();
}

TEST_F(ForgedLockFile, OfAnotherUserIsNotTrusted) {
    ZAN_SKIP_WITHOUT_ROOT();
    plant(text);
    if (chown(lock_file, 1, 1) != 0)
        GTEST_SKIP() << "there is no other user here";
    expect_not_trusted();
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

TEST_F(LockFile, MustBeARegularFile) {
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

TEST_F(LockFile, MayBelongToAnotherUser) {
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

TEST_F(LockFile, ThatIsLockedWithoutProcessIdIsReportedWithoutOne) {
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

TEST_F(LockFile, AndIdFilesMayBeNamedPipes) {
    for (const char *const file : {request_file, answer_file})
        ASSERT_EQ(mkfifo(file, 0644), 0);
    start(simple);
    expect_value("/a/b", "1");
}

} // namespace

} // namespace zan::test
