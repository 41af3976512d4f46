// SPDX-License-Identifier: MIT
#include "sim/start_test.h"

#include "support/sandbox.h"

#include <sys/mount.h>

namespace zan::test {

namespace {

class KernelLimits : public Start {
protected:
    static void set_limit(const std::string &name, long value) {
        write_file("/proc/sys/kernel/" + name, std::to_string(value));
    }
    static long limit(const std::string &name) {
        return std::stol(read_file("/proc/sys/kernel/" + name));
    }

    // Makes the limit as unchangeable as it is for an ordinary user.
    static void freeze(const std::string &name) {
        const std::string stand_in = "/tmp/zan_" + name;
        const std::string real = "/proc/sys/kernel/" + name;
        write_file(stand_in, std::to_string(limit(name)));
        ASSERT_EQ(mount(stand_in.c_str(), real.c_str(), nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, real.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
                  0);
    }
};

TEST_F(KernelLimits, AreRaisedIfPermitted) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    start(simple);
    EXPECT_EQ(limit("msgmax"), 65536);
    EXPECT_EQ(limit("msgmnb"), 1048576);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(zansim().program().error(), "zansim: raised kernel.msgmax from 8192 to 65536\n"
                                          "zansim: raised kernel.msgmnb from 16384 to 1048576\n");
}

TEST_F(KernelLimits, AreKeptIfSufficient) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 35100);
    set_limit("msgmnb", 70200);
    start(simple);
    EXPECT_EQ(limit("msgmax"), 35100);
    EXPECT_EQ(limit("msgmnb"), 70200);
}

TEST_F(KernelLimits, ThatCannotBeRaisedAreReportedWithTheCommand) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    freeze("msgmax");
    freeze("msgmnb");
    start(simple);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(zansim().program().error(),
              "zansim: values above 8092 bytes cannot pass: sysctl kernel.msgmax=65536 "
              "kernel.msgmnb=1048576\n");
}

TEST_F(KernelLimits, TooSmallForAnAnswerTurnItIntoARefusal) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    set_limit("msgmax", 8192);
    set_limit("msgmnb", 16384);
    freeze("msgmax");
    freeze("msgmnb");
    start(tree_file("{\"long\": \"" + std::string(8093, 'x') + "\", \"fits\": \"" +
                    std::string(8092, 'x') + "\"}"));
    EXPECT_EQ(module().get("/fits").msgsz, 8192U);
    expect_refused(module().get("/long"), class_cfg, cmd_get, -115,
                   "answer of 8093 bytes is too long");
}

TEST_F(KernelLimits, OfASingleQueueTurnAnAnswerIntoARefusal) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ZAN_SKIP_WITHOUT_ROOT();
    start(tree_file("{\"long\": \"" + std::string(20000, 'x') + "\"}"));
    set_limit("msgmnb", 16384);
    const RawModule narrow(zansim(), "NARROW");
    expect_refused(narrow.get("/long"), class_cfg, cmd_get, -115,
                   "answer of 20000 bytes is too long");
}

} // namespace

} // namespace zan::test
