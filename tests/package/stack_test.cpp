// SPDX-License-Identifier: MIT
//
// How much stack a request really uses, the C library's share included, seen in
// what it leaves on a painted stack.
#include "log/outputs.h"
#include "support/capture.h"
#include "support/module_test.h"
#include "support/requests.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace zan::test {
namespace {

constexpr std::size_t stack_size = 256 * 1024;
constexpr unsigned char paint = 0xa5;
// What a module has to leave for a request on the stack of a thread.
constexpr std::size_t promised = 8192;

struct Measured {
    const std::function<void()> *call;
    unsigned char *top;
};

void *run_measured(void *argument) {
    auto *measured = static_cast<Measured *>(argument);
    measured->top = static_cast<unsigned char *>(__builtin_frame_address(0));
    (*measured->call)();
    return nullptr;
}

// Bytes between the frame of the thread and the deepest that the call wrote to.
std::size_t stack_used_by(const std::function<void()> &call) {
    auto *stack = static_cast<unsigned char *>(
        mmap(nullptr, stack_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    std::memset(stack, paint, stack_size);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstack(&attributes, stack, stack_size), 0);
    Measured measured{&call, nullptr};
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, run_measured, &measured), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    const unsigned char *deepest = stack;
    while (deepest < measured.top && *deepest == paint)
        ++deepest;
    const auto used = static_cast<std::size_t>(measured.top - deepest);
    munmap(stack, stack_size);
    return used;
}

// Those that make a single request.
std::vector<IndirectRequest> single_requests() {
    std::vector<IndirectRequest> all(std::begin(indirect_requests), std::end(indirect_requests));
    for (const RequestFunction &request : locked_requests)
        all.push_back({request.name, request.make_longest});
    return all;
}

class Stack : public ModuleTest, public testing::WithParamInterface<IndirectRequest> {
protected:
    void expect_promise_kept() {
        // The first call resolves symbols; that is the loader's stack, once.
        GetParam().make_longest();
        const std::size_t used = stack_used_by(GetParam().make_longest);
        RecordProperty("bytes", std::to_string(used));
        EXPECT_LE(used, promised);
        EXPECT_GE(used, 100U) << "nothing has been measured";
    }
};
INSTANTIATE_TEST_SUITE_P(Of, Stack, testing::ValuesIn(single_requests()),
                         [](const auto &request) { return request.param.name; });

TEST_P(Stack, StaysWithinThePromiseWhenAnswered) {
    StdoutCapture output;
    daemon.on(1, 1, answer(std::string(2000, 'x')));
    for (const int cmd : {15, 19, 22, 23, 29})
        daemon.on(1, cmd, answer(std::string(2000, 'x')));
    expect_promise_kept();
}

TEST_P(Stack, StaysWithinThePromiseWhenTheDaemonIsGone) {
    StdoutCapture output;
    daemon.die();
    expect_promise_kept();
}

TEST(StackOfSeveralRequests, StaysWithinThePromise) {
    StdoutCapture output;
    ScriptedDaemon daemon;
    ASSERT_GE(zan_register("probe", 7), 0);
    daemon.on(1, 22, answer(std::string(2000, 'x')));
    for (const IndirectRequest &request : combined_requests) {
        SCOPED_TRACE(request.name);
        request.make_longest();
        const std::size_t used = stack_used_by(request.make_longest);
        RecordProperty(request.name, std::to_string(used));
        EXPECT_LE(used, promised);
    }
    remove_queue(g_msq_qid);
}

// A long line to everywhere, and to the file.  Beside the promise for requests: the
// system's logger and the opened outputs are the C library's.
TEST(StackOfALogLine, StaysWithinItsBound) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    const LogOutputs outputs;
    ScriptedDaemon daemon;
    daemon.on(1, 1, answer("0"));
    ASSERT_GE(zan_register("probe", 7), 0);
    for (const int dest : {4, 5}) {
        ASSERT_EQ(zan_log_init("probe", 7, dest), 1);
        const std::function<void()> call = [] { zan_log("probe", 3, "%s", requests::long_name); };
        call();
        const std::size_t used = stack_used_by(call);
        RecordProperty("bytes_" + std::to_string(dest), std::to_string(used));
        EXPECT_LE(used, std::size_t{16384});
    }
    remove_queue(g_msq_qid);
}

// Which is what the system says: 16 KB on x86-64, more elsewhere.
TEST_P(Stack, FitsTheSmallestThread) {
    StdoutCapture output;
    const auto smallest = static_cast<std::size_t>(sysconf(_SC_THREAD_STACK_MIN));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, smallest), 0);
    const std::function<void()> make = GetParam().make_longest;
    Measured measured{&make, nullptr};
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run_measured, &measured), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(daemon.records().size(), 1U);
}

} // namespace
} // namespace zan::test
