// SPDX-License-Identifier: MIT
#include "util/descriptor.h"
#include "util/errno_guard.h"
#include "util/memory.h"
#include "zan.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int work_buffer_size = 1024;
constexpr int unlimited_bound = 1024;
constexpr int exit_no_shell = 127;

constinit int open_max_bound = 0;

// Which command feeds or reads the stream on each descriptor; 0: none.
struct ChildTable {
    pid_t *pids = nullptr;
    int length = 0;
    int used = 0; // entries from here on were never set

    bool allocate() {
        if (pids != nullptr)
            return true;
        const int bound = open_max();
        if (bound <= 0)
            return false;
        pids = static_cast<pid_t *>(std::calloc(static_cast<std::size_t>(bound), sizeof *pids));
        length = pids != nullptr ? bound : 0;
        return pids != nullptr;
    }
    bool holds(int fd) const { return fd >= 0 && fd < length; }
    void set(int fd, pid_t pid) {
        pids[fd] = pid;
        used = std::max(used, fd + 1);
    }
};
constinit ChildTable children;

// Runs in the vforked child, in the parent's memory: only system calls, and
// nothing but the child's own variables is written.
[[noreturn]] void run_shell(const char *command, int unused_end, int used_end, int standard_fd) {
    close(unused_end);
    if (used_end == standard_fd) {
        fcntl(used_end, F_SETFD, 0);
    } else {
        dup2(used_end, standard_fd);
        close(used_end);
    }
    // Streams of earlier commands, still open in the parent.  One on the standard
    // descriptor itself has just been replaced.
    for (int fd = 0; fd < children.used; ++fd) {
        if (children.pids[fd] > 0 && fd != standard_fd)
            close(fd);
    }
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(exit_no_shell);
}

// A stream on the parent's end of the pipe, which it then owns; null closes the end.
FILE *open_kept_end(int fd, const char *mode) {
    FILE *stream = nullptr;
    if (children.holds(fd))
        stream = fdopen(fd, mode);
    else
        errno = EMFILE;
    if (stream == nullptr) {
        const ErrnoGuard error;
        close(fd);
    }
    return stream;
}

FILE *start_command(const char *command, const char *mode) {
    const bool reading = mode[0] == 'r';
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return nullptr;
    const int kept = reading ? ends[0] : ends[1];
    const Descriptor given(reading ? ends[1] : ends[0]);
    // Before the command, which could not be undone once it runs.
    FILE *const stream = open_kept_end(kept, mode);
    if (stream == nullptr)
        return nullptr;
    // vfork, because a copy of the module's memory may not fit a second time.
    const pid_t pid = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): only to exec
    if (pid == 0)
        run_shell(command, kept, given.get(), reading ? STDOUT_FILENO : STDIN_FILENO);
    if (pid < 0) {
        const ErrnoGuard error;
        std::fclose(stream);
        return nullptr;
    }
    children.set(kept, pid);
    return stream;
}

// Whether the command prints anything: waits until it does, or ends.
bool has_output(FILE *stream) {
    const int first = std::fgetc(stream);
    return first != EOF && std::ungetc(first, stream) != EOF;
}

} // namespace
} // namespace zan

using namespace zan;

int zan_system(const char *command) {
    const HeapText line{static_cast<char *>(std::malloc(work_buffer_size))};
    if (command == nullptr || line == nullptr)
        return -1;
    std::snprintf(line.get(), work_buffer_size, "%s 2> /dev/null", command);
    return std::system(line.get()); // NOLINT(cert-env33-c): running the shell is its purpose
}

int open_max(void) {
    if (open_max_bound != 0)
        return open_max_bound;
    errno = 0;
    const long limit = sysconf(_SC_OPEN_MAX);
    if (limit < 0 && errno != 0)
        std::printf("sysconf error for _SC_OPEN_MAX");
    const bool unlimited = limit < 0 && errno == 0;
    open_max_bound =
        unlimited ? unlimited_bound : static_cast<int>(std::min<long>(limit, INT32_MAX));
    return open_max_bound;
}

FILE *vpopen(const char *command, const char *mode) {
    if (command == nullptr || mode == nullptr ||
        (std::strcmp(mode, "r") != 0 && std::strcmp(mode, "w") != 0)) {
        errno = EINVAL;
        return nullptr;
    }
    return children.allocate() ? start_command(command, mode) : nullptr;
}

int vpclose(FILE *stream) {
    errno = 0;
    const int fd = stream != nullptr ? fileno(stream) : -1;
    if (!children.holds(fd) || children.pids[fd] == 0)
        return -1;
    const pid_t child = children.pids[fd];
    children.pids[fd] = 0;
    if (std::fclose(stream) != 0)
        return -1;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

int zan_popen(const char *command, char *buf, int size) {
    FILE *stream = vpopen(command, "r");
    if (stream == nullptr) {
        const int error = errno;
        std::printf("### zan_popen Error: command=%s\n", command != nullptr ? command : "(null)");
        errno = error;
        std::perror("Error");
        return 0;
    }
    // With a buffer of one byte fgets returns the empty text without reading the stream.
    if (buf != nullptr && size > 0 && has_output(stream) &&
        std::fgets(buf, size, stream) != nullptr)
        buf[std::strcspn(buf, "\n")] = '\0';
    vpclose(stream);
    return 0;
}
