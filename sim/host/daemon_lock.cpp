// SPDX-License-Identifier: MIT
#include "host/daemon_lock.h"

#include "base/file.h"
#include "base/process.h"
#include "base/queue.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

namespace zan::sim {

namespace {

constexpr char request_file[] = "/tmp/zan_qid";
constexpr char answer_file[] = "/tmp/zan_req_qid";
constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";
constexpr char lock_file[] = "/tmp/zan_sim.lock";

// What the lock file of a previous run contains.
struct PreviousRun {
    pid_t pid = 0;
    int request_queue = -1;
    int answer_queue = -1;

    std::string text() const {
        return std::to_string(pid) + ' ' + std::to_string(request_queue) + ' ' +
               std::to_string(answer_queue) + '\n';
    }
};

struct stat state_of(int fd) {
    struct stat state {};
    fstat(fd, &state);
    return state;
}

// Any user may create files with these names, of any type and content.
std::string short_text(int fd) {
    constexpr std::size_t longest = 63;
    std::string text;
    if (!S_ISREG(state_of(fd).st_mode) || !read_all(fd, text, longest))
        return {};
    return text;
}

// Trusts only a complete text that no other user can have written, because queues are
// removed on its account.
PreviousRun read_previous_run(int fd) {
    const struct stat state = state_of(fd);
    if ((state.st_uid != geteuid() && state.st_uid != 0) ||
        (state.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return {};
    const std::string text = short_text(fd);
    PreviousRun previous;
    if (std::sscanf(text.c_str(), "%d %d %d", &previous.pid, &previous.request_queue,
                    &previous.answer_queue) != 3 ||
        previous.text() != text)
        return {};
    return previous;
}

std::optional<int> read_id(const char *file) {
    const Descriptor fd(open(file, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const std::string text = fd ? short_text(fd.get()) : std::string();
    const char *const start = text.c_str() + std::strspn(text.c_str(), " \t\n");
    int id = -1;
    if (std::from_chars(start, text.c_str() + text.size(), id).ec != std::errc{} || id < 0)
        return std::nullopt;
    return id;
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

Error unusable(const char *why) {
    return {0, std::string(lock_file) + " is " + why + ": if no zansim runs, remove it"};
}

Result<Descriptor> open_lock_file() {
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    // In a directory like /tmp the kernel may refuse O_CREAT for a file that
    // exists and belongs to another user.
    Descriptor fd(open(lock_file, flags));
    if (!fd && errno == ENOENT)
        fd = Descriptor(open(lock_file, flags | O_CREAT, 0644));
    // That of another user can be locked all the same.
    if (!fd && errno == EACCES)
        fd = Descriptor(open(lock_file, (flags & ~O_ACCMODE) | O_RDONLY));
    if (!fd && errno == ELOOP)
        return unusable("a symbolic link");
    if (!fd)
        return system_error(lock_file);
    const struct stat state = state_of(fd.get());
    if (!S_ISREG(state.st_mode))
        return unusable("no regular file");
    // It will be written to, whatever else it may be.
    if (state.st_nlink > 1)
        return unusable("a hard link to another file");
    return fd;
}

bool is_own(int fd) {
    return state_of(fd).st_uid == geteuid();
}

Error running_already(int fd) {
    // A zansim that is starting has not written its text yet.
    const PreviousRun holder = read_previous_run(fd);
    if (is_alive(holder.pid))
        return {0, "zansim is running already: process " + std::to_string(holder.pid)};
    return {0, std::string("zansim is running already: ") + lock_file +
                   " is locked, and does not tell by which process"};
}

void remove_if_names(const char *file, int id) {
    if (id >= 0 && read_id(file) == id)
        unlink(file);
}

} // namespace

Result<Done> DaemonLock::lock() {
    for (;;) {
        auto opened = open_lock_file();
        if (!opened)
            return opened.error();
        if (flock(opened->get(), LOCK_EX | LOCK_NB) != 0)
            return errno == EWOULDBLOCK ? running_already(opened->get()) : system_error(lock_file);
        // Its owner ended, and removed it, between the two calls.
        if (!is_current(opened->get()))
            continue;
        // A file left by another user is replaced if permissions allow, otherwise only locked.
        if (!is_own(opened->get()) && unlink(lock_file) == 0)
            continue;
        fd_ = opened->release();
        return Done{};
    }
}

Result<std::string> DaemonLock::take() {
    if (const auto locked = lock(); !locked)
        return locked.error();
    const PreviousRun previous = read_previous_run(fd_);
    // Other users may lock it, whatever the umask is.
    if (is_own(fd_))
        fchmod(fd_, 0644);
    const auto request_id = read_id(request_file);
    const auto answer_id = read_id(answer_file);
    const auto state = request_id ? queue_state(*request_id) : std::nullopt;
    const bool own = state && request_id == previous.request_queue &&
                     answer_id == previous.answer_queue && state->last_receiver == previous.pid;
    const auto request = is_leftover(request_file, own, &QueueState::last_receiver);
    if (!request)
        return request.error();
    // Only the request queue shows its reader; the result holds for both.
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

Result<Done> DaemonLock::publish(int request_queue, int answer_queue, int port) {
    request_queue_ = request_queue;
    answer_queue_ = answer_queue;
    const std::string text = PreviousRun{getpid(), request_queue, answer_queue}.text();
    if (is_own(fd_) && (ftruncate(fd_, 0) != 0 || pwrite(fd_, text.data(), text.size(), 0) !=
                                                      static_cast<ssize_t>(text.size())))
        return system_error(lock_file);
    // Complete files from the start: a module may read them at any moment.
    if (const auto done = publish_port(port); !done)
        return done.error();
    if (const auto done = write_atomically(answer_file, std::to_string(answer_queue) + '\n'); !done)
        return done.error();
    return write_atomically(request_file, std::to_string(request_queue) + '\n');
}

Result<Done> DaemonLock::publish_port(int port) {
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

void DaemonLock::withdraw() {
    if (fd_ < 0)
        return;
    remove_if_names(request_file, request_queue_);
    remove_if_names(answer_file, answer_queue_);
    // The address belongs to the daemon that has the port.
    if (read_id(port_file) == port_)
        unlink(address_file);
    remove_if_names(port_file, port_);
    if (is_current(fd_))
        unlink(lock_file);
    close(fd_);
    fd_ = -1;
}

} // namespace zan::sim
