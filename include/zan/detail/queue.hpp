// SPDX-License-Identifier: MIT
// System V queues: what the kernel knows of them, and which belong to a module's name.
#ifndef ZAN_DETAIL_QUEUE_HPP
#define ZAN_DETAIL_QUEUE_HPP

#include "endpoint.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <vector>

namespace zan {
namespace detail {

constexpr int no_queue = -1;

inline bool queue_exists(int qid) {
    msqid_ds state{};
    // Without leave to read it, it is there all the same.
    return qid >= 0 && (msgctl(qid, IPC_STAT, &state) == 0 || errno == EACCES);
}

inline void remove_queue(int qid) {
    if (qid >= 0)
        msgctl(qid, IPC_RMID, nullptr);
}

// The id in a file of the daemon's, or no_queue.
inline int read_queue_id(const char *path) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return no_queue;
    char text[16 + 1] = {};
    const ssize_t size = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    char *end = nullptr;
    const long id = std::strtol(text, &end, 10);
    return size > 0 && end != text && id >= 0 && id <= INT32_MAX ? static_cast<int>(id) : no_queue;
}

enum class Sent { yes, full, gone, failed };

// Sends without waiting; a queue that is full is tried again until the deadline.
inline Sent send_record(int qid, const zan_msg &msg, int msgsz, const Deadline &deadline) {
    BackOff back_off(deadline);
    while (msgsnd(qid, &msg, static_cast<std::size_t>(msgsz), IPC_NOWAIT) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return errno == EIDRM || !queue_exists(qid) ? Sent::gone : Sent::failed;
        if (!back_off.pause())
            return Sent::full;
    }
    return Sent::yes;
}

// Receives without blocking until the deadline: the bytes, or -1.  For rare exchanges; its
// pauses cost latency.
inline int poll_record(int qid, zan_msg &msg, long mtype, const Deadline &deadline) {
    BackOff back_off(deadline);
    for (;;) {
        const ssize_t size = msgrcv(qid, &msg, ZAN_BODY_SIZE, mtype, IPC_NOWAIT);
        if (size >= 0)
            return static_cast<int>(size);
        if (errno != ENOMSG && errno != EINTR)
            return -1;
        if (!back_off.pause())
            return -1;
    }
}

// The key file of a module, locked for as long as the module lives: the lock shows to others
// of the same name and instance that not all queues of the file were left by the dead.
class KeyFile {
public:
    static constexpr int max_keys = 256; // ftok() takes the low byte of the project id

    KeyFile(const std::string &name, int instance) {
        char text[64];
        std::snprintf(text, sizeof text, ZAN_KEY_FILE, name.c_str(), instance);
        path_ = text;
    }
    ~KeyFile() { close_file(); }
    KeyFile(const KeyFile &) = delete;
    KeyFile &operator=(const KeyFile &) = delete;

    const std::string &path() const { return path_; }

    // Creates the file if need be and shares its lock.  False when it cannot be opened.
    bool open() {
        if (fd_ >= 0 && is_same_file())
            return true;
        close_file();
        fd_ = ::open(path_.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd_ >= 0)
            flock(fd_, LOCK_SH | LOCK_NB);
        return fd_ >= 0;
    }

    // Whether no other zan::Module lives with this file.
    bool lock_alone() { return fd_ >= 0 && flock(fd_, LOCK_EX | LOCK_NB) == 0; }
    void share() {
        if (fd_ >= 0)
            flock(fd_, LOCK_SH | LOCK_NB);
    }

    // A new queue under the first key that is free, or no_queue, with errno.
    int create_queue() const {
        for (int id = 0; id < max_keys; ++id) {
            const key_t key = ftok(path_.c_str(), id);
            if (key == -1)
                return no_queue;
            const int qid = msgget(key, IPC_CREAT | IPC_EXCL | 0777);
            if (qid >= 0 || errno != EEXIST)
                return qid;
        }
        return no_queue;
    }

    std::vector<int> queues() const {
        std::vector<int> found;
        for (int id = 0; id < max_keys; ++id) {
            const key_t key = ftok(path_.c_str(), id);
            const int qid = key == -1 ? -1 : msgget(key, 0);
            if (qid >= 0)
                found.push_back(qid);
        }
        return found;
    }

    // Removes the file unless another module, of either interface, has a queue by it.
    void remove_unless_used() {
        if (lock_alone() && is_same_file() && queues().empty())
            unlink(path_.c_str());
        close_file();
    }

private:
    bool is_same_file() const {
        struct stat opened {};
        struct stat named {};
        return fstat(fd_, &opened) == 0 && stat(path_.c_str(), &named) == 0 &&
               opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
    }
    void close_file() {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

    std::string path_;
    int fd_ = -1;
};

inline bool process_is_gone(pid_t pid) {
    return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

// Whether the process that received from the queue last has ended.  A queue from which
// nothing was ever received tells nothing, and counts as used.
inline bool receiver_is_gone(int qid) {
    msqid_ds state{};
    return msgctl(qid, IPC_STAT, &state) == 0 && process_is_gone(state.msg_lrpid);
}

} // namespace detail
} // namespace zan

#endif
