// SPDX-License-Identifier: MIT
//
// Linked into every test program. CTest runs each case in a process and a sandbox of
// its own. When one process runs several cases, this gives each of them what a new
// sandbox would: new queues, shared memory and sockets, the mounts of the sandbox, empty
// directories, and the signal mask that the program started with. What the library and
// the test keep in variables is left to the fixtures.
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <system_error>

namespace zan::test {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void set_loopback_up() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    if (fd < 0 || ioctl(fd, SIOCGIFFLAGS, &request) < 0)
        fail("the loopback interface");
    request.ifr_flags |= IFF_UP;
    if (ioctl(fd, SIOCSIFFLAGS, &request) < 0)
        fail("the loopback interface");
    close(fd);
}

// Limits of the queues, which a new namespace has at their defaults.
class QueueLimits {
public:
    void read() {
        for (auto &[name, value] : values_)
            std::ifstream(path(name)) >> value;
    }
    // The sandbox may lack the permission as well.
    void write() const {
        for (const auto &[name, value] : values_)
            std::ofstream(path(name)) << value;
    }

private:
    static std::string path(const std::string &name) { return "/proc/sys/kernel/" + name; }

    std::map<std::string, std::string> values_ = {{"msgmax", ""}, {"msgmnb", ""}, {"msgmni", ""}};
};

// Empty directories in the place of /tmp and /var/log. Only what the sandbox left in its
// /tmp stays visible: the way to a project below /tmp. Nothing is removed, because what
// a test mounted there belongs to the machine.
void cover_directories() {
    const auto mount_or_fail = [](const char *source, const char *target, const char *type,
                                  unsigned long flags) {
        if (mount(source, target, type, flags, nullptr) < 0)
            fail(target);
    };
    mount_or_fail("tmpfs", "/mnt", "tmpfs", 0);
    fs::permissions("/mnt", fs::perms::all | fs::perms::sticky_bit);
    for (const auto &entry : fs::directory_iterator("/tmp")) {
        const std::string copy = "/mnt/" + entry.path().filename().string();
        fs::create_directory(copy);
        mount_or_fail(entry.path().c_str(), copy.c_str(), nullptr, MS_BIND | MS_REC);
    }
    mount_or_fail("/mnt", "/tmp", nullptr, MS_BIND | MS_REC);
    mount_or_fail("tmpfs", "/var/log", "tmpfs", 0);
}

class Isolation : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest &tests) override {
        active_ = tests.test_to_run_count() > 1 && why_no_private_sandbox().empty();
        if (!active_)
            return;
        sigprocmask(SIG_SETMASK, nullptr, &mask_);
        limits_.read();
        directory_ = fs::current_path();
        mounts_ = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
        if (mounts_ < 0)
            fail("/proc/self/ns/mnt");
    }

    void OnTestStart(const testing::TestInfo &) override {
        if (!active_)
            return;
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
        // A thread that the last case has left shares the directory with this one.
        if (unshare(CLONE_FS) < 0 || setns(mounts_, CLONE_NEWNS) < 0 ||
            unshare(CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET) < 0)
            fail("namespaces");
        cover_directories();
        fs::current_path(directory_);
        set_loopback_up();
        limits_.write();
    }

    bool active_ = false;
    int mounts_ = -1;
    sigset_t mask_;
    QueueLimits limits_;
    fs::path directory_;
};

[[maybe_unused]] const bool registered = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Isolation);
    return true;
}();

} // namespace
} // namespace zan::test
