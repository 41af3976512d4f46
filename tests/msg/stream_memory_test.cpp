// SPDX-License-Identifier: MIT
//
// What the link does without memory.  The program's allocation functions take the
// place of the system's: they note what the library asks for, and refuse it when
// the test says so.
#include "msg/link_test.h"
#include "support/capture.h"
#include "support/new_process.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <vector>

namespace {

// The test's own allocations are left alone: they are made by operator new.
std::atomic<bool> watching = false;
std::atomic<bool> refusing = false;
constexpr int most_noted = 16;
std::size_t noted[most_noted];
std::atomic<int> noted_count = 0;

// Whether the allocation is to fail.
bool note(std::size_t size) {
    if (!watching)
        return false;
    if (const int index = noted_count++; index < most_noted)
        noted[index] = size;
    return refusing;
}

std::vector<std::size_t> asked_for() {
    watching = false;
    return {noted, noted + noted_count};
}

} // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);

void *__wrap_malloc(std::size_t size) {
    return note(size) ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
    return note(count * size) ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, std::size_t size) {
    return note(size) ? nullptr : __real_realloc(block, size);
}
}

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Memory : public LinkTest {
protected:
    // The library keeps its receive buffers as long as the process lives.
    void SetUp() override {
        ZAN_NEEDS_NEW_PROCESS();
        LinkTest::SetUp();
    }
    ~Memory() override { watching = false; }

    static int read() {
        watching = true;
        const int result = zan_api_recv_data(g_ipc_handle);
        watching = false;
        return result;
    }

    int wait_for(int type, int cmd) {
        watching = true;
        const int result = zan_client_recv_response(type, cmd, nullptr, nullptr);
        watching = false;
        return result;
    }
};

TEST_F(Memory, TheFirstReadAllocatesTheBuffer) {
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(read(), 0);
    EXPECT_THAT(asked_for(), ElementsAre(1125));
}

TEST_F(Memory, WithoutABufferTheReadFailsUntilThereIsMemory) {
    arrives({.type = message, .cmd = 4});
    refusing = true;
    for (int again = 0; again < 2; ++again) {
        StdoutCapture out;
        EXPECT_EQ(read(), -1);
        EXPECT_EQ(out.stop(), "zan_api_recv_data calloc memory failed\n");
    }
    EXPECT_EQ(bytes_waiting(g_ipc_handle), 100U);
    refusing = false;
    EXPECT_EQ(read(), 1);
}

TEST_F(Memory, ARecordThatFitsDoesNotGrowTheBuffer) {
    arrives({.type = message, .cmd = 4, .payload = std::string(1024, 'x')});
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(read(), 1);
    EXPECT_THAT(asked_for(), ElementsAre(1125));
}

TEST_F(Memory, TheBufferGrowsAndStays) {
    for (const std::size_t size : {1025U, 1024U, 3000U, 1025U, 3000U}) {
        arrives({.type = message, .cmd = 4, .payload = std::string(size, 'x')});
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(read(), 1);
    }
    EXPECT_THAT(asked_for(), ElementsAre(1125, 1025 + 101, 3000 + 101));
}

TEST_F(Memory, ABufferThatCannotGrowIsGivenUp) {
    arrives({.type = message, .cmd = 4});
    EXPECT_EQ(read(), 1);
    arrives({.type = message, .cmd = 4, .len = 5000});
    refusing = true;
    StdoutCapture out;
    EXPECT_EQ(read(), -1);
    EXPECT_EQ(out.stop(), "zan_api_recv_data realloc memory failed\n");
    refusing = false;
    // A fresh one takes what follows.
    bytes_arrive(std::string(3000, 'x'));
    for (int again = 0; again < 5; ++again)
        read();
    EXPECT_THAT(asked_for(), ElementsAre(1125, 5101, 1125));
}

TEST_F(Memory, ARecordThatCannotBeSetAsideIsDropped) {
    EXPECT_EQ(read(), 0); // the buffer is there
    arrives({.type = message, .cmd = 4, .payload = "dropped"});
    arrives({.type = 1, .cmd = 2});
    refusing = true;
    EXPECT_EQ(wait_for(1, 2), 1);
    refusing = false;
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(peer.records(), IsEmpty());
}

TEST_F(Memory, ARecordThatCannotBeCopiedIsNotDispatched) {
    EXPECT_EQ(read(), 0);
    arrives({.type = message, .cmd = 4});
    refusing = true;
    watching = true;
    char buf[100];
    const int result = zan_client_recv(g_ipc_handle, buf, 0);
    watching = false;
    refusing = false;
    EXPECT_EQ(result, 1);
    EXPECT_THAT(delivered(), IsEmpty());
}

} // namespace
} // namespace zan::test
