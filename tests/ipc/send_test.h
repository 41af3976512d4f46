// SPDX-License-Identifier: MIT
//
// What sends have in common on both kinds of daemon link.
#pragma once

#include "ipc/sockets.h"
#include "support/capture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace zan::test {

inline constexpr char resending[] = "get failed packet buffer, start sending...\n";
inline constexpr char maybe_full[] = "ipc socket: buffer maybe full\n";

inline std::string error_line(const char *format, int error) {
    char line[128];
    std::snprintf(line, sizeof line, format, std::strerror(error));
    return line;
}

inline std::string resend_failure(int error) {
    return resending + error_line("resend failed packet ret = -1, %s\n", error);
}

// The number of a socket that was deleted belongs to another one now, which sends
// nothing but its own bytes.
template<typename Send> void expect_nothing_owed_by(int number, Send send) {
    EXPECT_FALSE(is_open(number));
    Pair next = stream_pair();
    ASSERT_EQ(dup2(next.near.get(), number), number);
    StdoutCapture out;
    EXPECT_EQ(send(number, "first"), 5);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_available(next.far.get()), "first");
}

// A socket for hostile arguments, with bytes in front of it that nobody may take.
class Tempting : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(write(ends.far.get(), "waiting", 7), 7); }
    void TearDown() override {
        EXPECT_EQ(read_available(ends.far.get()), "");
        EXPECT_EQ(read_available(fd), "waiting");
    }

    const Pair ends = stream_pair();
    const int fd = ends.near.get();
};

} // namespace zan::test
