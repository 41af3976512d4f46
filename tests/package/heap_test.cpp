// SPDX-License-Identifier: MIT
//
// Requests and text helpers use no heap: this program stands in front of the C
// library's allocator and counts what the thread under test asks for.
#include "support/module_test.h"
#include "support/requests.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>

namespace {

thread_local bool counting = false;
thread_local int allocations = 0;

void count() {
    if (counting)
        ++allocations;
}

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names for them
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void *malloc(std::size_t size) {
    count();
    return __libc_malloc(size);
}
void *calloc(std::size_t members, std::size_t size) {
    count();
    return __libc_calloc(members, size);
}
void *realloc(void *block, std::size_t size) {
    count();
    return __libc_realloc(block, size);
}
}

namespace zan::test {
namespace {

template<typename Call> int allocations_of(Call call) {
    allocations = 0;
    counting = true;
    call();
    counting = false;
    return allocations;
}

TEST(Heap, IsCountedAtAll) {
    EXPECT_EQ(allocations_of([] { zan_system("true"); }), 1);
}

TEST(Heap, IsNotUsedByTextAndNumberHelpers) {
    EXPECT_EQ(allocations_of([] {
                  char text[64] = "  text ";
                  std::int32_t number = 0;
                  std::uint32_t unsigned_number = 0;
                  zan_trim(text);
                  zan_strcpy(text, "12", sizeof text);
                  zan_sprintf(text, sizeof text, "%s:%d", "user", 12);
                  zan_strtol("12", nullptr, 0, &number);
                  zan_strtoul("12", nullptr, 0, &unsigned_number);
              }),
              0);
}

using HeapOfRequests = ModuleTest;

template<typename Functions> void make_all(const Functions &functions) {
    for (const auto &function : functions)
        EXPECT_EQ(allocations_of(function.make_longest), 0) << function.name;
}

TEST_F(HeapOfRequests, IsNotUsed) {
    // The C library would allocate the buffer for the warnings of texts that are cut.
    static char stdout_buffer[BUFSIZ];
    std::setvbuf(stdout, stdout_buffer, _IOFBF, sizeof stdout_buffer);
    daemon.on(1, 1, answer(std::string(200, '7')));
    daemon.on(1, 34, answer("4711"));
    make_all(locked_requests);
    make_all(indirect_requests);
    make_all(combined_requests);
    make_all(unlocked_requests);
    make_all(posts);
    EXPECT_EQ(allocations_of([] { zan_run_shell(1, 1, "%s:%d", requests::long_path, 1); }), 0);
    daemon.wait_for_records(std::size(locked_requests) + std::size(indirect_requests));
}

} // namespace
} // namespace zan::test
