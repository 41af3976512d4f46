// SPDX-License-Identifier: MIT
#pragma once

#include "support/capture.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zan::test {

// A link on which part of an earlier message is still under way, and stays so.  The
// process has had a link before: the first makes the channel keep what is left over.
class CloggedLinkEnds {
public:
    CloggedLinkEnds() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_), 0);
        StdoutCapture out;
        const std::string much(4UL * 1024 * 1024, 'x');
        EXPECT_GT(zan_ipc_send(ends_[0], much.data(), static_cast<int>(much.size())), 0);
        EXPECT_EQ(out.stop(), "ipc socket: buffer maybe full\n");
    }
    // Closes the daemon's end; the module's is the test's to delete.
    ~CloggedLinkEnds() { close(ends_[1]); }
    CloggedLinkEnds(const CloggedLinkEnds &) = delete;
    CloggedLinkEnds &operator=(const CloggedLinkEnds &) = delete;

    int module_end() const { return ends_[0]; }

    // Makes room, but not for all that is kept.
    void make_room() const {
        std::vector<char> some(100UL * 1024);
        ASSERT_GT(read(ends_[1], some.data(), some.size()), 0);
    }

    // From the daemon to the module, where nothing is in the way.
    void deliver(std::string_view bytes) const {
        ASSERT_EQ(write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

private:
    int ends_[2] = {-1, -1};
};

} // namespace zan::test
