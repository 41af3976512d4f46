// SPDX-License-Identifier: MIT
//
// Requests and text helpers use no heap: this program stands in front of the C
// library's allocator and counts what the thread under test asks for.
#include "support/module_test.h"

#include <gtest/gtest.h>

#include <cstddef>
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

TEST_F(HeapOfRequests, IsNotUsed) {
    const std::string path = "/" + std::string(2000, 'p');
    const std::string value(3000, 'v');
    daemon.on(1, 1, answer(std::string(200, '7')));
    daemon.on(1, 34, answer("4711"));
    char text[4000];
    char file[] = "/tmp/file";
    zan_login_req login = {"a", "b", value.c_str(), "d", "e", 0};
    EXPECT_EQ(allocations_of([&] {
                  cfg_getstr(text, sizeof text, "%s:%d", path.c_str(), 1);
                  cfg_getarray(text, sizeof text, "%s:%d", path.c_str(), 1);
                  cfg_setstr(value.c_str(), "%s:%d", path.c_str(), 1);
                  cfg_getint("%s:%d", path.c_str(), 1);
                  cfg_setint(1, "%s:%d", path.c_str(), 1);
                  cfg_getcount("%s:%d", path.c_str(), 1);
                  cfg_get_module_pid("wifi");
                  cfg_anchor("%s:%d", path.c_str(), 1);
                  cfg_del("%s:%d", path.c_str(), 1);
                  zan_notify_register_value_changed("/a", 1, 2);
                  zan_notify_unregister_value_changed("/a");
                  zan_notify_register_event(1);
                  zan_notify_unregister_event(1);
                  cfg_reload(file);
                  cfg_setfile(file);
                  cfg_dump(1, file);
                  cfg_print(1, value.c_str(), "%s:%d", path.c_str(), 1);
                  cfg_getattr("%s:%d", path.c_str(), 1);
                  cfg_setattr(value.c_str(), "%s:%d", path.c_str(), 1);
                  cfg_reset("%s:%d", path.c_str(), 1);
                  cfg_apply_firewall_event();
                  zan_loginauth(&login);
                  zan_convert(1, file);
                  zan_convert_path(text, sizeof text, 1, "%s:%d", path.c_str(), 1);
                  zan_cfg_get_ifname(text, sizeof text, "%s:%d", path.c_str(), 1);
                  zan_run_shell(1, 1, "%s:%d", path.c_str(), 1);
                  zan_report_event_result(1, 2);
                  zan_firewall_request3("%s:%d", path.c_str(), 1);
                  zan_do_cwmp_request(1, "data", 4);
              }),
              0);
    daemon.wait_for_records(29);
}

} // namespace
} // namespace zan::test
