// SPDX-License-Identifier: MIT
// Commands in want of memory.  The linker puts the calls below in the place of the
// system's; they fail once when they are told to.
#include <zan.h>

#include "util/process_fixture.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

bool fdopen_fails;
bool calloc_fails;

bool fails_now(bool &failure) {
    if (!failure)
        return false;
    failure = false;
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

FILE *__real_fdopen(int fd, const char *mode);
void *__real_calloc(std::size_t count, std::size_t size);

FILE *__wrap_fdopen(int fd, const char *mode) {
    return fails_now(fdopen_fails) ? nullptr : __real_fdopen(fd, mode);
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
    return fails_now(calloc_fails) ? nullptr : __real_calloc(count, size);
}

} // extern "C"

namespace zan::test {
namespace {

class ACommandInWantOfMemory : public ProcessTest,
                               public testing::WithParamInterface<const char *> {
protected:
    // What fails is said by a flag, which the failure takes back.
    void expect_not_started(bool &failure) {
        const auto before = open_descriptors();
        failure = true;
        errno = 0;
        EXPECT_EQ(vpopen("true", GetParam()), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_FALSE(failure);
        EXPECT_FALSE(has_children());
        EXPECT_EQ(open_descriptors(), before);
    }
    void expect_started() {
        EXPECT_EQ(vpclose(vpopen("exit 3", GetParam())), 3 << 8);
        EXPECT_FALSE(has_children());
    }
};
INSTANTIATE_TEST_SUITE_P(Modes, ACommandInWantOfMemory, testing::Values("r", "w"));

TEST_P(ACommandInWantOfMemory, IsNotStartedWithoutAStream) {
    expect_not_started(fdopen_fails);
    expect_started();
}

TEST_P(ACommandInWantOfMemory, IsNotStartedWithoutATableOfCommands) {
    expect_not_started(calloc_fails);
    expect_started();
}

} // namespace
} // namespace zan::test
