// SPDX-License-Identifier: MIT
//
// How long an answer is waited for.  The program's poll() takes the place of the
// system's: it notes the time-out that is asked for and lets it pass at once.
#include "msg/link_test.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <poll.h>

#include <atomic>
#include <ostream>
#include <vector>

namespace {

std::vector<int> timeouts_asked;
std::atomic<bool> time_flies = false;

} // namespace

extern "C" int __real_poll(pollfd *fds, nfds_t count, int timeout_ms);

extern "C" int __wrap_poll(pollfd *fds, nfds_t count, int timeout_ms) {
    if (!time_flies || count != 1 || fds[0].fd != g_ipc_handle)
        return __real_poll(fds, count, timeout_ms);
    timeouts_asked.push_back(timeout_ms);
    return __real_poll(fds, count, 0);
}

namespace zan::test {
namespace {

using testing::ElementsAre;

struct Wait {
    int type;
    int cmd;
    int seconds;
};

void PrintTo(const Wait &wait, std::ostream *out) {
    *out << wait.type << "," << wait.cmd;
}

class TimeOut : public LinkTest, public testing::WithParamInterface<Wait> {
protected:
    TimeOut() { time_flies = true; }
    ~TimeOut() override { time_flies = false; }
};

TEST_P(TimeOut, OfTheAnswer) {
    const auto [type, cmd, seconds] = GetParam();
    EXPECT_EQ(zan_client_recv_response(type, cmd, nullptr, nullptr), -2);
    EXPECT_THAT(timeouts_asked, ElementsAre(seconds * 1000));
}

INSTANTIATE_TEST_SUITE_P(Answers, TimeOut,
                         testing::Values(Wait{1, 5, 50}, Wait{1, 12, 50}, Wait{1, 31, 50},
                                         Wait{1, 1, 60}, Wait{1, 2, 60}, Wait{1, 32, 60},
                                         Wait{1, 33, 60}, Wait{2, 5, 60}, Wait{3, 0, 60},
                                         Wait{3, 1, 60}, Wait{4, 2, 60}, Wait{7, 12, 60},
                                         Wait{9, 2, 60}));

class EachPiece : public TimeOut {};

// Two reads of the record set aside, one of the header of the answer, and the wait
// for the payload that never comes.
TEST_F(EachPiece, StartsTheTimeAgain) {
    arrives({.type = message, .cmd = 4, .payload = "set aside"});
    arrives({.type = class_cfg, .cmd = cmd_dump, .len = 5});
    EXPECT_EQ(zan_client_recv_response(1, 5, nullptr, nullptr), -2);
    EXPECT_THAT(timeouts_asked, ElementsAre(50000, 50000, 50000, 50000));
}

} // namespace
} // namespace zan::test
