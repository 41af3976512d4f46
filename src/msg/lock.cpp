// SPDX-License-Identifier: MIT
#include "msg/lock.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <pthread.h>

namespace zan {
namespace {

// Some paths release a lock that they do not own, others leave it held.  Unlocking a free
// mutex and destroying a held one are undefined, so the state is kept here.
class Mutex {
public:
    void init() {
        pthread_mutex_init(&mutex_, nullptr);
        held_ = false;
    }

    void destroy() {
        unlock();
        pthread_mutex_destroy(&mutex_);
    }

    int lock() {
        const int error = pthread_mutex_lock(&mutex_);
        if (error == 0)
            held_.store(true, std::memory_order_relaxed);
        return error;
    }

    int unlock() {
        return held_.exchange(false, std::memory_order_relaxed) ? pthread_mutex_unlock(&mutex_) : 0;
    }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<bool> held_ = false;
};

constinit Mutex g_api_lock;
constinit std::atomic<int> g_api_lock_init = 0;
sigset_t set;

constinit Mutex g_msq_lock;
constinit std::atomic<int> g_msq_lock_init = 0;

} // namespace
} // namespace zan

using namespace zan;

// The number in this message is that of the line.  Those of lock and unlock, 194 and 229,
// are part of the text: every device in the field prints them.
void zan_api_lock_init(void) {
    if (g_api_lock_init != 0)
        return;
    if (sigemptyset(&set) != 0 || sigaddset(&set, SIGTERM) != 0)
        std::printf("[%s:%d] zan_api_lock_init fail\n", "zan_api_lock_init", __LINE__);
    g_api_lock.init();
    ++g_api_lock_init;
}

void zan_api_lock_destroy(void) {
    if (g_api_lock_init == 0)
        return;
    g_api_lock.destroy();
    --g_api_lock_init;
}

void zan_api_lock(void) {
    if (g_api_lock_init == 0)
        return;
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0)
        std::printf("[%s:%d] sig unlock fail\n", "zan_api_lock", 194);
    const int error = g_api_lock.lock();
    if (error != 0)
        std::printf("cfg api lock failure [%d]\n", error);
}

void zan_api_unlock(void) {
    if (g_api_lock_init == 0)
        return;
    const int error = g_api_lock.unlock();
    if (error != 0)
        std::printf("cfg api unlock failure [%d]\n", error);
    if (pthread_sigmask(SIG_UNBLOCK, &set, nullptr) != 0)
        std::printf("[%s:%d] cfg api unlock failure\n", "zan_api_unlock", 229);
}

void zan_msq_lock_init(void) {
    if (g_msq_lock_init != 0)
        return;
    g_msq_lock.init();
    g_msq_lock_init = 1;
}

void zan_msq_lock_destroy(void) {
    if (g_msq_lock_init == 0)
        return;
    g_msq_lock.destroy();
    g_msq_lock_init = 0;
}

void zan_msq_lock(void) {
    if (g_msq_lock_init != 0)
        g_msq_lock.lock();
}

void zan_msq_unlock(void) {
    if (g_msq_lock_init != 0)
        g_msq_lock.unlock();
}
