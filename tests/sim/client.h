// SPDX-License-Identifier: MIT
#pragma once

#include "sim/zansim.h"

#include <zan.h>

namespace zan::test {

// This process as a module of zansim, through the library.
class ClientTest : public ZansimTest {
protected:
    void SetUp() override {
        ZansimTest::SetUp();
        if (autostart_)
            register_client();
    }

    void TearDown() override {
        if (g_msq_qid >= 0) {
            zan_unregister("client", 0);
        }
        ZansimTest::TearDown();
    }

    // Instead of the usual tree and options.
    void serve(const std::string &tree, const std::vector<std::string> &options = {}) {
        start(tree, options);
        register_client();
    }

    // A value as the library reads it; "none" when it does not.
    static std::string value(const char *path) {
        char text[2048] = {};
        return cfg_getstr(text, sizeof text, "%s", path) == 1 ? text : "none";
    }

private:
    static void register_client() { ASSERT_GE(zan_register("client", 0), 0); }
};

} // namespace zan::test
