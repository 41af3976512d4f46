// SPDX-License-Identifier: MIT
#pragma once

#include "sim/raw_link.h"
#include "sim/zansim.h"
#include "support/patience.h"

#include <memory>
#include <string>

namespace zan::test {

// zansim with mesh agents, which connect over TCP.
class TcpTest : public ZansimTest {
protected:
    std::unique_ptr<RawLink> agent(const std::string &name,
                                   RawLink::Buffer buffer = RawLink::Buffer::usual) {
        auto made = std::make_unique<RawLink>(name, buffer);
        EXPECT_TRUE(same_bytes(made->announce(cmd_register),
                               made->answer(zansim(), class_registration, cmd_register, 1)));
        return made;
    }

    // Expects this answer as the next record for the agent.
    void expect_answer(const RawLink &link, int type, int cmd, int result,
                       const std::string &payload = {}) {
        EXPECT_TRUE(same_bytes(link.receive(), link.answer(zansim(), type, cmd, result, payload)))
            << "to " << link.name();
    }

    void expect_modules(int count) {
        EXPECT_TRUE(eventually([&] {
            return module().get("/zansim/modules").payload() == std::to_string(count);
        })) << "there are "
            << module().get("/zansim/modules").payload();
    }

    // Serves everything that was sent before, and expects no other record.
    void expect_nothing_for(const RawLink &link) {
        EXPECT_TRUE(same_bytes(link.call(class_cfg, cmd_empty, ""),
                               link.answer(zansim(), class_cfg, cmd_empty, 1)));
        EXPECT_EQ(link.waiting(), 0U);
    }

    std::string dropped() { return module().get("/zansim/dropped").payload(); }
};

} // namespace zan::test
