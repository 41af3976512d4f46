// SPDX-License-Identifier: MIT
#include "msg/identity.h"

#include <atomic>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

constinit int g_zan_qid = zan::no_queue;
constinit int g_reg_msq_qid = zan::no_queue;
constinit int g_msq_qid = zan::no_queue;
constinit int g_msq_qid2 = zan::no_queue;
constinit int g_ipc_handle = zan::no_link;
constinit char g_module_name[ZAN_NAME_SIZE] = {};
constinit char g_agent_name[ZAN_NAME_SIZE] = {};

namespace zan {
namespace {

constinit std::atomic<int> cached_pid = 0;
constinit pthread_once_t fork_watched = PTHREAD_ONCE_INIT;

void forget_pid() {
    cached_pid.store(0, std::memory_order_relaxed);
}

void watch_fork() {
    pthread_atfork(nullptr, nullptr, forget_pid);
}

} // namespace

std::string_view module_name() {
    return {g_module_name, strnlen(g_module_name, sizeof g_module_name)};
}

int own_pid() {
    int pid = cached_pid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pthread_once(&fork_watched, watch_fork);
        pid = static_cast<int>(getpid());
        cached_pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

} // namespace zan
