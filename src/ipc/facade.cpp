// SPDX-License-Identifier: MIT
// Selects the channel and keeps the calls of one process apart with a busy flag.
#include "util/pause.h"
#include "zan.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <netinet/in.h>
#include <sys/socket.h>

namespace zan {
namespace {

constexpr int busy_attempts = 6;
constexpr int busy_pause_us = 200'000;
constexpr int still_busy = -1;

// Tested and set in two steps: best effort, not mutual exclusion.  Atomic only so that
// threads may do it concurrently and a call sees what the previous one wrote.
constinit std::atomic<unsigned char> g_ipc_lock = 0;
constinit std::atomic<unsigned char> g_ipc_enable_lock = 1;

bool is_free() {
    return g_ipc_lock.load(std::memory_order_acquire) == 0 ||
           g_ipc_enable_lock.load(std::memory_order_relaxed) == 0;
}

template<typename Operation>
int with_busy_flag(Operation operation, const char *complaint = nullptr) {
    for (int attempt = 0; attempt < busy_attempts; ++attempt) {
        if (is_free()) {
            g_ipc_lock.store(1, std::memory_order_relaxed);
            const int result = operation();
            g_ipc_lock.store(0, std::memory_order_release);
            return result;
        }
        pause_for_us(busy_pause_us);
    }
    if (complaint != nullptr)
        std::printf("%s: retry fail!\n", complaint);
    return still_busy;
}

} // namespace
} // namespace zan

using namespace zan;

void zan_ipc_enable_lock(unsigned char flag) {
    g_ipc_enable_lock.store(flag, std::memory_order_relaxed);
}

int zan_ipc_create(const char *name, int) {
    return zan_socket_create(name);
}

int zan_ipc_send(int fd, const void *data, int len) {
    return with_busy_flag([=] { return zan_socket_send(fd, data, len); }, "zan_ipc_send");
}

int zan_ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to) {
    return with_busy_flag([=] { return zan_socket_send_to(fd, data, len, to); });
}

int zan_ipc_recv(int fd, void *buf, int len) {
    return with_busy_flag([=] { return zan_socket_recv(fd, buf, len); });
}

int zan_ipc_try_recv(int fd, void *buf, int len) {
    return with_busy_flag([=] { return zan_socket_try_recv(fd, buf, len); });
}

int zan_ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from) {
    return with_busy_flag([=] { return zan_socket_recv_from(fd, buf, len, from); });
}

int zan_ipc_delete(int fd) {
    return with_busy_flag([=] { return zan_socket_delete(fd); });
}

int ipc_create_server(const char *module) {
    return ipc_socket_create_server(module);
}

int ipc_create_client(void) {
    return ipc_socket_create_client();
}

int ipc_send_to(int fd, const void *data, int len, const struct sockaddr_in *to) {
    return with_busy_flag([=] {
        if (len < 0) {
            errno = EINVAL;
            return -1;
        }
        return static_cast<int>(sendto(fd, data, static_cast<size_t>(len), 0,
                                       reinterpret_cast<const sockaddr *>(to), sizeof *to));
    });
}

int ipc_recv(int fd, void *buf, int len) {
    return with_busy_flag([=] { return zan_socket_recv(fd, buf, len); });
}

int ipc_recv_from(int fd, void *buf, int len, struct sockaddr_in *from) {
    return with_busy_flag([=] { return ipc_socket_recv_from(fd, buf, len, from); });
}

int ipc_get_module_addr(const char *module, struct sockaddr_in *addr) {
    return ipc_socket_get_addr(module, addr);
}
