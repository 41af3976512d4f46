// SPDX-License-Identifier: MIT
#include <zan.h>

#include "support/capture.h"
#include "support/raw.h"
#include "util/descriptors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zan::test {
namespace {

// A directory of the case's own: /tmp may be shared with the rest of a machine.
class Files : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(mkdtemp(directory_), nullptr); }
    void TearDown() override {
        unlink(path("file").c_str());
        rmdir(directory_);
    }
    std::string path(const char *name) const { return std::string(directory_) + "/" + name; }

private:
    char directory_[32] = "/tmp/zan_file_test.XXXXXX";
};

using FileExists = Files;
using Fopen = Files;
using Fclose = Files;
using Close = Files;

TEST_F(FileExists, IsOneForAReadableFileAndKeepsNoDescriptor) {
    write_file(path("file"), "contents");
    const auto before = open_descriptors();
    EXPECT_EQ(zan_file_exists(path("file").c_str()), 1);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(read_file(path("file")), "contents");
}

TEST_F(FileExists, IsZeroForAMissingFileAndCreatesNone) {
    EXPECT_EQ(zan_file_exists(path("file").c_str()), 0);
    EXPECT_FALSE(file_exists(path("file")));
    EXPECT_EQ(zan_file_exists(""), 0);
    EXPECT_EQ(zan_file_exists(nullptr), 0);
}

// A socket cannot be opened, not even by root.
TEST_F(FileExists, IsZeroForAFileThatCannotBeRead) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path("file").c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    struct stat status {};
    ASSERT_EQ(stat(path("file").c_str(), &status), 0);
    EXPECT_EQ(zan_file_exists(path("file").c_str()), 0);
    close(fd);
}

TEST_F(Fopen, OpensInTheModeAskedFor) {
    StdoutCapture output;
    FILE *stream = zan_fopen(path("file").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_GT(std::fputs("written", stream), 0);
    EXPECT_EQ(zan_fclose(stream), 0);
    EXPECT_EQ(read_file(path("file")), "written");

    stream = zan_fopen(path("file").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    char text[16] = "";
    EXPECT_STREQ(std::fgets(text, sizeof text, stream), "written");
    EXPECT_EQ(zan_fclose(stream), 0);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Fopen, WarnsWhenItFails) {
    StdoutCapture output;
    errno = 0;
    EXPECT_EQ(zan_fopen(path("file").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(output.stop(), "### Warning:zan_fopen NULL\n");
}

TEST_F(Fopen, WarnsWithoutPathOrMode) {
    StdoutCapture output;
    EXPECT_EQ(zan_fopen(nullptr, "r"), nullptr);
    EXPECT_EQ(zan_fopen("/dev/null", nullptr), nullptr);
    EXPECT_EQ(output.stop(), "### Warning:zan_fopen NULL\n### Warning:zan_fopen NULL\n");
}

TEST_F(Fclose, ClosesTheDescriptorBehindTheStream) {
    FILE *stream = std::fopen("/dev/null", "r");
    ASSERT_NE(stream, nullptr);
    const int fd = fileno(stream);
    EXPECT_EQ(zan_fclose(stream), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Fclose, PassesTheFailureOfTheLastWriteOn) {
    FILE *stream = std::fopen("/dev/full", "w");
    ASSERT_NE(stream, nullptr);
    std::fputs("no room for this", stream);
    EXPECT_EQ(zan_fclose(stream), EOF);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Fclose, WarnsForNullAndReturnsTheLengthOfTheWarning) {
    const std::string warning = "### Warning:zan_fclose NULL\n";
    StdoutCapture output;
    EXPECT_EQ(zan_fclose(nullptr), static_cast<int>(warning.size()));
    EXPECT_EQ(output.stop(), warning);
}

TEST_F(Close, ClosesADescriptorAboveZero) {
    StdoutCapture output;
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GT(fd, 0);
    EXPECT_EQ(zan_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Close, PassesTheFailureOfTheSystemOn) {
    StdoutCapture output;
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    EXPECT_EQ(zan_close(fd), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Close, RefusesDescriptorZeroAndLeavesStandardInputOpen) {
    const std::string warning = "### Warning:zan_close[0]\n";
    ASSERT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
    StdoutCapture output;
    EXPECT_EQ(zan_close(0), static_cast<int>(warning.size()));
    EXPECT_EQ(output.stop(), warning);
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST_F(Close, RefusesNegativeDescriptors) {
    const std::string warning = "### Warning:zan_close[-1]\n";
    StdoutCapture output;
    EXPECT_EQ(zan_close(-1), static_cast<int>(warning.size()));
    EXPECT_EQ(zan_close(-2147483647 - 1),
              static_cast<int>(std::strlen("### Warning:zan_close[-2147483648]\n")));
    EXPECT_EQ(output.stop(), warning + "### Warning:zan_close[-2147483648]\n");
}

} // namespace
} // namespace zan::test
