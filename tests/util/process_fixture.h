// SPDX-License-Identifier: MIT
#pragma once

#include "support/raw.h"
#include "util/descriptors.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

namespace zan::test {

// Takes what this process and its commands write to standard error.
class StderrCapture {
public:
    std::string text() {
        std::fflush(stderr);
        std::string contents(4096, '\0');
        const ssize_t n = pread(file_, contents.data(), contents.size(), 0);
        contents.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
        return contents;
    }
    ~StderrCapture() { close(file_); }

private:
    int file_ = memfd_create("stderr", MFD_CLOEXEC);
    DescriptorReplaced replaced_{STDERR_FILENO, file_};
};

// While it lives no further descriptor can be opened, or no process started.
class LimitedTo {
public:
    LimitedTo(decltype(RLIMIT_NOFILE) what, rlim_t limit) : what_(what) {
        getrlimit(what_, &before_);
        const rlimit lowered{.rlim_cur = limit, .rlim_max = before_.rlim_max};
        EXPECT_EQ(setrlimit(what_, &lowered), 0);
    }
    ~LimitedTo() { setrlimit(what_, &before_); }
    LimitedTo(const LimitedTo &) = delete;
    LimitedTo &operator=(const LimitedTo &) = delete;

private:
    decltype(RLIMIT_NOFILE) what_;
    rlimit before_{};
};

// A directory of the case's own, and what the commands of a case are asked.
class ProcessTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(mkdtemp(directory_), nullptr); }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string &name) const { return std::string(directory_) + "/" + name; }
    std::string make_fifo(const std::string &name) const {
        EXPECT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        return path(name);
    }

    // Everything a stream yields until its end.
    static std::string read_all(FILE *stream) {
        std::string text;
        for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream))
            text.push_back(static_cast<char>(c));
        return text;
    }

    static bool has_children() { return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD; }

    // A shell command that prints "open" or "closed" for a descriptor it inherits.
    static std::string probe(int fd) {
        return "if [ -e /proc/$$/fd/" + std::to_string(fd) + " ]; then echo open; " +
               "else echo closed; fi";
    }

private:
    char directory_[40] = "/tmp/zan_process_test.XXXXXX";
};

} // namespace zan::test
