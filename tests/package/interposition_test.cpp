// SPDX-License-Identifier: MIT
//
// A module may define functions of the names that the library exports without a prefix:
// the library keeps calling its own.  intruder.c, which is part of this program, defines
// them all.
#include "support/raw.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

extern "C" int zan_intruders_called;
int zan_intruders_called = 0;

namespace zan::test {
namespace {

// The library's function of this name; the name alone is the program's.
template<typename Function> Function *own(const char *name) {
    const std::string library = "libzan.so." + std::to_string(ZAN_VERSION_MAJOR);
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(handle, nullptr) << dlerror();
    return reinterpret_cast<Function *>(dlsym(handle, name));
}

TEST(Interposition, IsPossible) {
    void *const named = dlsym(RTLD_DEFAULT, "create_file");
    ASSERT_NE(named, nullptr);
    EXPECT_NE(named, reinterpret_cast<void *>(own<int(const char *)>("create_file")));
    EXPECT_EQ(reinterpret_cast<int (*)()>(named)(), zan_intruders_called);
    EXPECT_EQ(zan_intruders_called, 1);
}

TEST(Interposition, LeavesQueueCreationAlone) {
    const int qid = zan_msg_create("interposed", 3);
    EXPECT_GE(qid, 0);
    EXPECT_TRUE(file_exists("/tmp/interposed_3.msq"));
    EXPECT_EQ(zan_msg_del(qid), 0);
    EXPECT_EQ(zan_del_msq_file("interposed", 3), 0);
    EXPECT_EQ(zan_intruders_called, 0);
}

TEST(Interposition, LeavesCommandsAlone) {
    char line[16] = "";
    EXPECT_EQ(zan_popen("echo output", line, sizeof line), 0);
    EXPECT_STREQ(line, "output");
    EXPECT_EQ(zan_intruders_called, 0);
}

TEST(Interposition, LeavesQueriesOfInterfacesAlone) {
    char name[16] = "";
    EXPECT_EQ(own<int(char *, const char *)>("get_infname_by_ip")(name, "127.0.0.1"), 1);
    EXPECT_STREQ(name, "lo");
    EXPECT_EQ(zan_intruders_called, 0);
}

} // namespace
} // namespace zan::test
