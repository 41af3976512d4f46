// SPDX-License-Identifier: MIT
#include "support/capture.h"

#include "support/patience.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace zan::test {

namespace {

int check(int result, const char *what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

std::string contents(int file) {
    std::string text;
    char block[4096];
    // pread: the descriptor's position is where the next output goes.
    while (true) {
        const ssize_t n = pread(file, block, sizeof block, static_cast<off_t>(text.size()));
        if (n <= 0)
            return text;
        text.append(block, static_cast<size_t>(n));
    }
}

int count(const std::string &text, const std::string &part) {
    int found = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size()))
        ++found;
    return found;
}

} // namespace

StdoutCapture::StdoutCapture()
    : file_(check(memfd_create("stdout", MFD_CLOEXEC), "memfd_create")),
      saved_(check(dup(STDOUT_FILENO), "dup")) {
    std::fflush(stdout);
    check(dup2(file_, STDOUT_FILENO), "dup2");
    // With a buffer of its own: the C library takes up a new mode at once only then.
    static char buffer[BUFSIZ];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
}

StdoutCapture::~StdoutCapture() {
    if (running_)
        stop();
    close(file_);
    close(saved_);
}

std::string StdoutCapture::stop() {
    if (running_) {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        running_ = false;
        // A failure reported meanwhile must not vanish with the capture.
        if (testing::Test::HasFailure())
            std::printf("captured:\n%s", contents(file_).c_str());
    }
    return contents(file_);
}

std::string StdoutCapture::so_far() const {
    return contents(file_);
}

bool StdoutCapture::wait_for(const std::string &text, int times) const {
    return eventually([&] { return count(so_far(), text) >= times; });
}

std::string overflow_warning(const std::string &copied) {
    return "### warning: zan_strcpy overflow, pid = " + std::to_string(getpid()) +
           ", string = " + copied + ", size = " + std::to_string(copied.size()) + "\n";
}

} // namespace zan::test
