// SPDX-License-Identifier: MIT
#include "claim.h"

#include "file.h"
#include "queue.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

namespace zan::sim {

namespace {

constexpr char request_file[] = "/tmp/zan_qid";
constexpr char answer_file[] = "/tmp/zan_req_qid";
constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";
constexpr char lock_file[] = "/tmp/zan_sim.lock";

// What the lock file of an earlier run says.
struct Earlier {
    pid_t pid = 0;
    int request_queue = -1;
    int answer_queue = -1;
};

Earlier read_earlier(int fd) {
    char text[64] = {};
    Earlier earlier;
    if (pread(fd, text, sizeof text - 1, 0) > 0 &&
        std::sscanf(text, "%d %d %d", &earlier.pid, &earlier.request_queue,
                    &earlier.answer_queue) == 3)
        return earlier;
    return {};
}

std::optional<int> read_id(const char *file) {
    std::ifstream stream(file);
    int id = -1;
    if (!(stream >> id) || id < 0)
        return std::nullopt;
    return id;
}

bool is_alive(pid_t pid) {
    return kill(pid, 0) == 0 || errno == EPERM;
}

Error system_error(const std::string &what) {
    return {0, what + ": " + std::strerror(errno)};
}

Error cannot_judge(const char *file, int id) {
    const std::string queue = std::to_string(id);
    return {0, "queue " + queue + " of " + file +
                   " exists and its process is not known: if no daemon runs, clear it with: "
                   "ipcrm -q " +
                   queue};
}

// Whether the queue that a file names is left from a run that has ended; an
// error when it is not, or may not be.  `user` is the process that used the
// queue last as the daemon does.
Result<bool> is_leftover(const char *file, bool known_from_lock, pid_t QueueState::*user) {
    const auto id = read_id(file);
    if (!id || !queue_exists(*id))
        return false;
    const auto state = queue_state(*id);
    if (!state)
        return cannot_judge(file, *id);
    // The lock is ours now, so the run that wrote it is over, even when its
    // process id has been given to another process since.
    if (known_from_lock)
        return true;
    const pid_t pid = (*state).*user;
    if (pid == 0)
        return cannot_judge(file, *id);
    if (is_alive(pid))
        return Error{0, "a daemon is running: process " + std::to_string(pid) + " serves queue " +
                            std::to_string(*id) + " of " + file};
    return true;
}

Result<Done> remove_leftover(const char *file, std::string &told) {
    const int id = read_id(file).value_or(-1);
    if (!remove_queue(id))
        return system_error("cannot remove queue " + std::to_string(id) + ", left of a killed run");
    told += (told.empty() ? "cleared what a killed run left: queue " : ", queue ");
    told += std::to_string(id);
    return Done{};
}

// Whether the open file still is the one that the name leads to.
bool is_current(int fd) {
    struct stat opened {};
    struct stat named {};
    return fstat(fd, &opened) == 0 && stat(lock_file, &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

int open_lock_file() {
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    // In a directory like /tmp the kernel may refuse O_CREAT for a file that
    // exists and belongs to another user.
    int fd = open(lock_file, flags);
    if (fd < 0 && errno == ENOENT)
        fd = open(lock_file, flags | O_CREAT, 0666);
    if (fd >= 0)
        fchmod(fd, 0666); // another user's run may follow; fails for a file of theirs
    return fd;
}

void remove_if_names(const char *file, int id) {
    if (id >= 0 && read_id(file) == id)
        unlink(file);
}

} // namespace

Result<Done> Claim::lock() {
    for (;;) {
        fd_ = open_lock_file();
        if (fd_ < 0)
            return system_error(lock_file);
        if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            const std::string pid = std::to_string(read_earlier(fd_).pid);
            const Error error = errno == EWOULDBLOCK
                                    ? Error{0, "zansim is running already: process " + pid}
                                    : system_error(lock_file);
            close(fd_);
            fd_ = -1;
            return error;
        }
        if (is_current(fd_))
            return Done{};
        // Its owner ended, and removed it, between the two calls.
        close(fd_);
    }
}

Result<std::string> Claim::take() {
    if (const auto locked = lock(); !locked)
        return locked.error();
    const Earlier earlier = read_earlier(fd_);
    const auto request_id = read_id(request_file);
    const auto answer_id = read_id(answer_file);
    const auto state = request_id ? queue_state(*request_id) : std::nullopt;
    const bool own = state && request_id == earlier.request_queue &&
                     answer_id == earlier.answer_queue && state->last_receiver == earlier.pid;
    const auto request = is_leftover(request_file, own, &QueueState::last_receiver);
    if (!request)
        return request.error();
    // Only the request queue tells its reader; what else it proves covers both.
    const auto answer = is_leftover(answer_file, *request, &QueueState::last_sender);
    if (!answer)
        return answer.error();
    std::string told;
    for (const auto &[file, leftover] :
         {std::pair(request_file, *request), {answer_file, *answer}}) {
        if (!leftover)
            continue;
        if (const auto removed = remove_leftover(file, told); !removed)
            return removed.error();
    }
    return told;
}

Result<Done> Claim::publish(int request_queue, int answer_queue, int port) {
    request_queue_ = request_queue;
    answer_queue_ = answer_queue;
    const std::string text = std::to_string(getpid()) + ' ' + std::to_string(request_queue) + ' ' +
                             std::to_string(answer_queue) + '\n';
    if (ftruncate(fd_, 0) != 0 ||
        pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        return system_error(lock_file);
    // Complete files from the start: a module may read them at any moment.
    if (const auto done = publish_port(port); !done)
        return done.error();
    if (const auto done = write_atomically(answer_file, std::to_string(answer_queue) + '\n'); !done)
        return done.error();
    return write_atomically(request_file, std::to_string(request_queue) + '\n');
}

Result<Done> Claim::publish_port(int port) {
    port_ = port;
    if (port == 0) {
        unlink(port_file);
        unlink(address_file);
        return Done{};
    }
    if (const auto done = write_atomically(address_file, "127.0.0.1\n"); !done)
        return done.error();
    return write_atomically(port_file, std::to_string(port) + '\n');
}

void Claim::withdraw() {
    if (fd_ < 0)
        return;
    remove_if_names(request_file, request_queue_);
    remove_if_names(answer_file, answer_queue_);
    // The address is that of whoever has the port.
    if (read_id(port_file) == port_)
        unlink(address_file);
    remove_if_names(port_file, port_);
    unlink(lock_file);
    close(fd_);
    fd_ = -1;
}

} // namespace zan::sim
