// SPDX-License-Identifier: MIT
//
// The waits of a minute, waited for.
#include "msg/link_test.h"

#include <zan.h>

#include <chrono>

namespace zan::test {
namespace {

using std::chrono::seconds;

class Minute : public LinkTest {
protected:
    static std::chrono::steady_clock::duration wait_for(int type, int cmd) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(zan_client_recv_response(type, cmd, nullptr, nullptr), -2);
        return std::chrono::steady_clock::now() - start;
    }
};

TEST_F(Minute, AnAnswerIsWaitedForAWholeOne) {
    EXPECT_GE(wait_for(class_cfg, cmd_get), seconds(60));
}

TEST_F(Minute, ADumpIsWaitedForFiftySeconds) {
    EXPECT_GE(wait_for(class_cfg, cmd_dump), seconds(50));
}

} // namespace
} // namespace zan::test
