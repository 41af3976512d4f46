// SPDX-License-Identifier: MIT
#include "msg/lock.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <pthread.h>

namespace zan {
namespace {

constinit pthread_mutex_t g_api_lock = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<int> g_api_lock_init = 0;
// Some paths release the lock without owning it.  Unlocking a free mutex is
// undefined, so whether anybody holds it is known here.
constinit std::atomic<bool> api_lock_held = false;
sigset_t set;

constinit pthread_mutex_t g_msq_lock = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<int> g_msq_lock_init = 0;

} // namespace
} // namespace zan

using namespace zan;

void zan_api_lock_init(void) {
    if (g_api_lock_init != 0)
        return;
    if (sigemptyset(&set) != 0 || sigaddset(&set, SIGTERM) != 0)
        std::printf("[%s:%d] zan_api_lock_init fail\n", "zan_api_lock_init", __LINE__);
    pthread_mutex_init(&g_api_lock, nullptr);
    api_lock_held = false;
    ++g_api_lock_init;
}

void zan_api_lock_destroy(void) {
    if (g_api_lock_init == 0)
        return;
    // A lock that was left held is released first: to destroy it held is undefined.
    if (api_lock_held.exchange(false))
        pthread_mutex_unlock(&g_api_lock);
    pthread_mutex_destroy(&g_api_lock);
    --g_api_lock_init;
}

void zan_api_lock(void) {
    if (g_api_lock_init == 0)
        return;
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0)
        std::printf("[%s:%d] sig unlock fail\n", "zan_api_lock", 194);
    const int error = pthread_mutex_lock(&g_api_lock);
    if (error != 0)
        std::printf("cfg api lock failure [%d]\n", error);
    else
        api_lock_held.store(true, std::memory_order_relaxed);
}

void zan_api_unlock(void) {
    if (g_api_lock_init == 0)
        return;
    const int error = api_lock_held.exchange(false, std::memory_order_relaxed)
                          ? pthread_mutex_unlock(&g_api_lock)
                          : 0;
    if (error != 0)
        std::printf("cfg api unlock failure [%d]\n", error);
    if (pthread_sigmask(SIG_UNBLOCK, &set, nullptr) != 0)
        std::printf("[%s:%d] cfg api unlock failure\n", "zan_api_unlock", 229);
}

void zan_msq_lock_init(void) {
    if (g_msq_lock_init != 0)
        return;
    pthread_mutex_init(&g_msq_lock, nullptr);
    g_msq_lock_init = 1;
}

void zan_msq_lock_destroy(void) {
    if (g_msq_lock_init == 0)
        return;
    pthread_mutex_destroy(&g_msq_lock);
    g_msq_lock_init = 0;
}

void zan_msq_lock(void) {
    if (g_msq_lock_init != 0)
        pthread_mutex_lock(&g_msq_lock);
}

void zan_msq_unlock(void) {
    if (g_msq_lock_init != 0)
        pthread_mutex_unlock(&g_msq_lock);
}
