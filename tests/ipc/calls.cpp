// SPDX-License-Identifier: MIT
#include "ipc/calls.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <utility>

namespace zan::test {
namespace {

// Plain objects: allocations happen before the constructors and after the destructors
// of all others.
constinit int allocations_until_refusal = 0;
constinit int refused_option = -1;
constinit int connects = 0;
std::deque<std::size_t> taken;
std::function<void(int)> connect_action;
std::function<void()> unlink_action;

constinit std::atomic<int> connected_sends = 0;
constinit std::atomic<int> addressed_sends = 0;

std::size_t taken_of(std::size_t size) {
    if (taken.empty())
        return size;
    size = std::min(size, taken.front());
    taken.pop_front();
    return size;
}

bool allocation_refused() {
    return allocations_until_refusal > 0 && --allocations_until_refusal == 0;
}

class ResetAfterEachTest : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo &) override {
        allocations_until_refusal = 0;
        refused_option = -1;
        connects = 0;
        connected_sends = 0;
        addressed_sends = 0;
        taken.clear();
        connect_action = nullptr;
        unlink_action = nullptr;
    }
};

const bool reset_registered = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new ResetAfterEachTest);
    return true;
}();

} // namespace

void refuse_allocation(int n) {
    allocations_until_refusal = n;
}

void take_only(std::initializer_list<std::size_t> bytes) {
    taken = bytes;
}

int connected_sends_made() {
    return connected_sends;
}

int addressed_sends_made() {
    return addressed_sends;
}

void refuse_option(int option) {
    refused_option = option;
}

void before_connect(std::function<void(int)> action) {
    connect_action = std::move(action);
}

int connects_made() {
    return connects;
}

void after_unlink(std::function<void()> action) {
    unlink_action = std::move(action);
}

} // namespace zan::test

using namespace zan::test;

// The linker dictates the names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
    return allocation_refused() ? nullptr : __real_malloc(size);
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
    return allocation_refused() ? nullptr : __real_calloc(count, size);
}

ssize_t __real_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to,
                      socklen_t to_size);
ssize_t __wrap_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to,
                      socklen_t to_size) {
    ++addressed_sends;
    return __real_sendto(fd, data, taken_of(size), flags, to, to_size);
}

ssize_t __real_send(int fd, const void *data, size_t size, int flags);
ssize_t __wrap_send(int fd, const void *data, size_t size, int flags) {
    ++connected_sends;
    return __real_send(fd, data, taken_of(size), flags);
}

int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    if (option == refused_option) {
        errno = ENOPROTOOPT;
        return -1;
    }
    return __real_setsockopt(fd, level, option, value, size);
}

int __real_connect(int fd, const sockaddr *to, socklen_t to_size);
int __wrap_connect(int fd, const sockaddr *to, socklen_t to_size) {
    ++connects;
    if (connect_action)
        connect_action(connects);
    return __real_connect(fd, to, to_size);
}

int __real_unlink(const char *path);
int __wrap_unlink(const char *path) {
    const int result = __real_unlink(path);
    const int error = errno;
    if (const auto action = std::exchange(unlink_action, nullptr))
        action();
    errno = error;
    return result;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
