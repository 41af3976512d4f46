// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <zan.h>

#include <sys/mount.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace zan::test {
namespace {

// With a file of the test in the place of the console.  No body runs without it: it
// would write to the machine's.
class Console : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        ZAN_SKIP_WITHOUT_ROOT();
        if (access("/dev/console", F_OK) != 0)
            GTEST_SKIP() << "there is no /dev/console to replace";
        write_file("/tmp/console", "");
        ASSERT_EQ(mount("/tmp/console", "/dev/console", nullptr, MS_BIND, nullptr), 0);
    }
};

TEST_F(Console, IsOpenedForEachCall) {
    StdoutCapture output;
    zan_dprintf("%s %d\n", "number", 1);
    EXPECT_EQ(read_file("/tmp/console"), "number 1\n");
    // Opened for writing: a file begins afresh.
    zan_dprintf("2");
    EXPECT_EQ(read_file("/tmp/console"), "2");
    zan_dprintf("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(read_file("/tmp/console"), std::string(5000, 'x'));
    zan_dprintf(nullptr);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Console, ThatCannotBeOpenedIsSilent) {
    ASSERT_EQ(mount(nullptr, "/dev/console", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
              0);
    StdoutCapture output;
    zan_dprintf("nowhere\n");
    EXPECT_EQ(output.stop(), "");
    EXPECT_EQ(read_file("/tmp/console"), "");
}

TEST(RedirectOutput, WritesToAStreamThatIsGiven) {
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&text, &size);
    EXPECT_EQ(redirect_output("abcdef", 3, stream), 3);
    EXPECT_EQ(redirect_output("\0x", 2, stream), 2);
    EXPECT_EQ(redirect_output("lost", 0, stream), 0);
    EXPECT_EQ(redirect_output("lost", -4, stream), -4);
    EXPECT_EQ(redirect_output(nullptr, 0, stream), 0);
    EXPECT_EQ(redirect_output(nullptr, 4, stream), 0);
    std::fclose(stream);
    EXPECT_EQ(std::string(text, size), std::string("abc\0x", 5));
    std::free(text);
}

TEST(RedirectOutput, ReturnsItsCountWithoutAStream) {
    for (const int n : {5, 1, 0, -7, INT_MAX, INT_MIN})
        EXPECT_EQ(redirect_output("abc", n, nullptr), n);
    EXPECT_EQ(redirect_output(nullptr, 3, nullptr), 3);
}

TEST(RedirectOutput, CountsWhatCouldBeWritten) {
    std::FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(redirect_output("abc", 3, full), 0);
    std::fclose(full);
}

} // namespace
} // namespace zan::test
