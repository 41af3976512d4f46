// SPDX-License-Identifier: MIT
// The receive thread, in its locking and its lock-free form.
#include "msg/lock.h"
#include "msg/record.h"
#include "util/errno_guard.h"
#include "util/pause.h"
#include "zan.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <pthread.h>

namespace zan {
namespace {

constexpr int idle_pause_us = 100'000;
constexpr int tolerated_errors = 3;

// The one receive thread.  The lock keeps its end and a cancel apart: a thread that has
// ended must not be cancelled.
constinit pthread_mutex_t thread_state_lock = PTHREAD_MUTEX_INITIALIZER;
constinit bool thread_running = false;
pthread_t myThread;
pthread_attr_t myThreadAttr;

void mark_ended() {
    pthread_mutex_lock(&thread_state_lock);
    if (thread_running && pthread_equal(myThread, pthread_self()) != 0)
        thread_running = false;
    pthread_mutex_unlock(&thread_state_lock);
}

// A cancel takes effect only within this guard, so that the thread never ends inside a
// handler or with the queue lock held.
class CancelPoint {
public:
    CancelPoint() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); }
    ~CancelPoint() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    CancelPoint(const CancelPoint &) = delete;
    CancelPoint &operator=(const CancelPoint &) = delete;
};

void end_if_cancelled() {
    const CancelPoint cancel;
    pthread_testcancel();
}

// The thread's record.  The bytes after a received record read as zeros to a handler,
// however long the previous records were.
class Inbox {
public:
    zan_msg msg = {};

    void dispatch(int received) {
        zero_after(msg.body, received, dirty_end_);
        // A handler may have written anywhere into its record.
        dirty_end_ = zan_process_data(&msg.body) != 0 ? ZAN_BODY_SIZE : received;
    }

private:
    int dirty_end_ = 0;
};

class ErrorCount {
public:
    void reset() { count_ = 0; }

    // Prints the error; false if it was one too many.
    bool tolerate() {
        const ErrnoGuard error;
        std::printf("API: receive msq message error, msgid: %d. Error:%s count=%d\n", g_msq_qid,
                    error.text(), count_);
        return count_++ < tolerated_errors;
    }

private:
    int count_ = 0;
};

void receive_under_lock(int mtype) {
    Inbox inbox;
    ErrorCount errors;
    for (;;) {
        // While records wait there is no pause, and a cancel must not wait for one.
        end_if_cancelled();
        {
            const QueueLock lock;
            const int received = zan_msg_recv_no_wait(g_msq_qid, mtype, &inbox.msg, ZAN_BODY_SIZE);
            if (received >= 0) {
                inbox.dispatch(received);
                errors.reset();
                continue;
            }
        }
        if (errno == EINTR)
            continue;
        if (errno == ENOMSG) {
            const CancelPoint cancel;
            pause_for_us(idle_pause_us);
        } else if (!errors.tolerate()) {
            return;
        }
    }
}

int receive_or_be_cancelled(int mtype, zan_msg *msg) {
    const CancelPoint cancel;
    return zan_msg_recv(g_msq_qid, mtype, msg, ZAN_BODY_SIZE);
}

void receive_without_lock(int mtype) {
    Inbox inbox;
    ErrorCount errors;
    for (;;) {
        const int received = receive_or_be_cancelled(mtype, &inbox.msg);
        if (received > 0)
            inbox.dispatch(received);
        if (received >= 0)
            errors.reset();
        else if (errno != EINTR && !errors.tolerate())
            return;
    }
}

struct ThreadKind {
    const char *name;
    void (*receive)(int mtype);
};
constexpr ThreadKind locking = {"zan_thread_create", receive_under_lock};
constexpr ThreadKind lock_free = {"zan_thread_create_wo_lock", receive_without_lock};

template<const ThreadKind &kind> void *thread_main(void *argument) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    const int mtype = static_cast<int>(reinterpret_cast<intptr_t>(argument));
    std::printf("%s: mtype=%d g_msq_qid=%d-------------------->\n", kind.name, mtype, g_msq_qid);
    if (g_msq_qid >= 0)
        kind.receive(mtype);
    mark_ended();
    return nullptr;
}

int report_attribute_error(const char *format, int error) {
    std::printf(format, std::strerror(error));
    return error;
}

int start_thread(void *(*main)(void *), int mtype) {
    int error = pthread_attr_init(&myThreadAttr);
    if (error != 0)
        return report_attribute_error("Initial pthread attribution error, errno: %s.\n", error);
    error = pthread_attr_setdetachstate(&myThreadAttr, PTHREAD_CREATE_DETACHED);
    if (error != 0) {
        pthread_attr_destroy(&myThreadAttr);
        return report_attribute_error("Setting pthread attribution error, errno: %s.\n", error);
    }

    // Passed by value, so that nothing of this call has to outlive it.
    void *const argument = reinterpret_cast<void *>(static_cast<intptr_t>(mtype));
    pthread_t started;
    pthread_mutex_lock(&thread_state_lock);
    error = pthread_create(&started, &myThreadAttr, main, argument);
    // If this thread was not created, an earlier one stays the one to cancel.
    if (error == 0) {
        myThread = started;
        thread_running = true;
    }
    pthread_mutex_unlock(&thread_state_lock);
    pthread_attr_destroy(&myThreadAttr);
    if (error != 0)
        std::printf("API: Create trap handler thread failed.\n");
    return error;
}

} // namespace
} // namespace zan

using namespace zan;

int zan_thread_create(int mtype) {
    zan_msq_lock_init();
    return start_thread(thread_main<locking>, mtype);
}

int zan_thread_create_wo_lock(int mtype) {
    return start_thread(thread_main<lock_free>, mtype);
}

int zan_thread_cancel(void) {
    pthread_mutex_lock(&thread_state_lock);
    const int error = thread_running ? pthread_cancel(myThread) : ESRCH;
    thread_running = false;
    pthread_mutex_unlock(&thread_state_lock);
    return error;
}
