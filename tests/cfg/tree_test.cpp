// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"

#include <climits>

namespace zan::test {
namespace {

// cfg_anchor and cfg_del differ in their command only.
struct Operation {
    const char *name;
    int (*call)(const char *fmt, ...);
    int cmd;
};

std::ostream &operator<<(std::ostream &out, const Operation &operation) {
    return out << operation.name;
}

class Tree : public ConfigTest, public testing::WithParamInterface<Operation> {};
INSTANTIATE_TEST_SUITE_P(Node, Tree,
                         testing::Values(Operation{"cfg_anchor", cfg_anchor, cmd::anchor},
                                         Operation{"cfg_del", cfg_del, cmd::del}),
                         [](const auto &operation) { return operation.param.name; });

TEST_P(Tree, SendsTheFormattedPath) {
    leave_traces();
    EXPECT_EQ(GetParam().call("/sys/user:%d", 3), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(GetParam().cmd, "/sys/user:3")));
    EXPECT_EQ(record.msgsz, 111U);
}

TEST_P(Tree, TakesThePathForAFormatOnlyOnce) {
    EXPECT_EQ(GetParam().call("/a%%%%b/%s", "%d%%"), 1);
    EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, "/a%%b/%d%%")));
}

TEST_P(Tree, CutsThePathAt1023Characters) {
    for (const std::size_t length : {1023U, 1024U, 5000U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(GetParam().call("%s", path_of(length).c_str()), 1);
        EXPECT_TRUE(same_record(sent(), request(GetParam().cmd, path_of(1023))));
    }
}

TEST_P(Tree, ReadsNothingButTheResult) {
    StdoutCapture output;
    for (const int result : {0, 1, 9, INT_MAX}) {
        SCOPED_TRACE(result);
        daemon.once(configuration, GetParam().cmd, {{.result = result, .payload = "-7 text"}});
        EXPECT_EQ(GetParam().call("/a"), 1);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Tree, PassesTheRefusalOn) {
    daemon.once(configuration, GetParam().cmd, negative(-9002, "no such node"));
    EXPECT_EQ(GetParam().call("/a"), -9002);
}

TEST_P(Tree, RefusesNullAndSendsNothing) {
    StdoutCapture output;
    EXPECT_EQ(GetParam().call(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(output.stop(), "");
}

} // namespace
} // namespace zan::test
