// SPDX-License-Identifier: MIT
#include "base/file.h"

#include "support/raw.h"

#include <gmock/gmock.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace zan::sim;
using zan::test::read_file;
using zan::test::write_file;

std::vector<std::string> names_in(const char *directory) {
    std::vector<std::string> names;
    DIR *const open = opendir(directory);
    while (const dirent *const entry = readdir(open)) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    closedir(open);
    return names;
}

class WriteAtomically : public testing::Test {
protected:
    WriteAtomically() { mkdir("/tmp/zan_files", 0755); }
    ~WriteAtomically() override {
        for (const std::string &name : names_in("/tmp/zan_files"))
            unlink(("/tmp/zan_files/" + name).c_str());
        rmdir("/tmp/zan_files");
    }

    const std::string file = "/tmp/zan_files/tree.json";
};

TEST_F(WriteAtomically, LeavesTheNewTextAndNothingElse) {
    ASSERT_TRUE(write_atomically(file, "old"));
    ASSERT_TRUE(write_atomically(file, "new"));
    EXPECT_EQ(read_file(file), "new");
    EXPECT_THAT(names_in("/tmp/zan_files"), testing::ElementsAre("tree.json"));
}

TEST_F(WriteAtomically, IsSeenByWhoHasTheOldFileOpenAsTheOldText) {
    write_file(file, "old");
    const int fd = open(file.c_str(), O_RDONLY);
    ASSERT_TRUE(write_atomically(file, "new"));
    char text[8] = {};
    EXPECT_EQ(read(fd, text, sizeof text), 3);
    EXPECT_STREQ(text, "old");
    close(fd);
}

TEST_F(WriteAtomically, KeepsTheModeOfTheFile) {
    write_file(file, "old");
    chmod(file.c_str(), 0600);
    ASSERT_TRUE(write_atomically(file, "new"));
    struct stat state {};
    stat(file.c_str(), &state);
    EXPECT_EQ(state.st_mode & 07777, 0600U);
}

TEST_F(WriteAtomically, ReportsADirectoryThatIsNotThere) {
    EXPECT_EQ(write_atomically("/tmp/zan_none/tree.json", "x").error().text,
              "/tmp/zan_none/tree.json: cannot be written: No such file or directory");
}

TEST_F(WriteAtomically, LeavesNoTemporaryFileWhenTheTargetCannotBeReplaced) {
    mkdir("/tmp/zan_files/tree.json", 0755);
    EXPECT_FALSE(write_atomically(file, "x"));
    EXPECT_THAT(names_in("/tmp/zan_files"), testing::ElementsAre("tree.json"));
    rmdir("/tmp/zan_files/tree.json");
}

} // namespace
