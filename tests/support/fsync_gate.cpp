// SPDX-License-Identifier: MIT
#include "support/fsync_gate.h"

#include "support/patience.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zan::test {

namespace {

// -1 with errno when the kernel, or the emulator, has no such thing.
int listen_for_fsync() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fsync, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return -1;
    return static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter));
}

} // namespace

FsyncGate::FsyncGate() : listener_(listen_for_fsync()), end_(eventfd(0, EFD_CLOEXEC)) {
    if (listener_ < 0)
        why_none_ = std::string("system calls cannot be held up: ") + std::strerror(errno);
    else
        thread_ = std::thread([this] { serve(); });
}

FsyncGate::~FsyncGate() {
    open();
    const std::uint64_t one = 1;
    if (thread_.joinable() && write(end_, &one, sizeof one) == sizeof one)
        thread_.join();
    for (const int fd : {listener_, end_})
        if (fd >= 0)
            ::close(fd);
}

void FsyncGate::serve() {
    for (;;) {
        pollfd events[] = {{listener_, POLLIN, 0}, {end_, POLLIN, 0}};
        poll(events, 2, -1);
        if (events[1].revents != 0)
            return;
        seccomp_notif call{};
        if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
            continue; // who called has been killed
        {
            std::unique_lock guard(mutex_);
            caller_ = true;
            changed_.wait(guard, [this] { return open_; });
            caller_ = false;
        }
        seccomp_notif_resp answer{};
        answer.id = call.id;
        answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &answer);
    }
}

void FsyncGate::close() {
    const std::lock_guard guard(mutex_);
    open_ = false;
}

void FsyncGate::open() {
    const std::lock_guard guard(mutex_);
    open_ = true;
    changed_.notify_all();
}

bool FsyncGate::await_caller() const {
    return eventually([this] {
        const std::lock_guard guard(mutex_);
        return caller_;
    });
}

} // namespace zan::test
