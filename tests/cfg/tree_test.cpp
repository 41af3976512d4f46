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
                         testing::Values(Operation{"cfg_anchor", cfg_anchor, cmd_anchor},
                                         Operation{"cfg_del", cfg_del, cmd_delete}),
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
        daemon.once(class_cfg, GetParam().cmd, {{.result = result, .payload = "-7 text"}});
        EXPECT_EQ(GetParam().call("/a"), 1);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_P(Tree, PassesTheRefusalOn) {
    daemon.once(class_cfg, GetParam().cmd, negative(-9002, "no such node"));
    EXPECT_EQ(GetParam().call("/a"), -9002);
}

TEST_P(Tree, RefusesNullAndSendsNothing) {
    StdoutCapture output;
    EXPECT_EQ(GetParam().call(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(output.stop(), "");
}

// ---- files -----------------------------------------------------------------

// cfg_reload, cfg_setfile and cfg_dump name a file; one of them has a mode.
struct FileRequest {
    const char *name;
    int (*call)(char *file);
    int cmd;
    int arg;
    std::string report;
};

std::ostream &operator<<(std::ostream &out, const FileRequest &request) {
    return out << request.name;
}

class TreeFile : public ConfigTest, public testing::WithParamInterface<FileRequest> {
protected:
    static int call(std::string file) { return GetParam().call(file.data()); }
    static Fields expected(const std::string &file) {
        return request(GetParam().cmd, file, GetParam().arg);
    }
};
INSTANTIATE_TEST_SUITE_P(
    Of, TreeFile,
    testing::Values(FileRequest{"cfg_reload", cfg_reload, cmd_reload, 0, "loadfile"},
                    FileRequest{"cfg_setfile", cfg_setfile, cmd_set_file, 0, "loadfile"},
                    FileRequest{"cfg_dump", [](char *file) { return cfg_dump(-3, file); }, cmd_dump,
                                -3, "dumpfile"}),
    [](const auto &file) { return file.param.name; });

TEST_P(TreeFile, TravelsByItsNameUnformatted) {
    leave_traces();
    EXPECT_EQ(call("/tmp/100%d %s"), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, expected("/tmp/100%d %s")));
    EXPECT_EQ(record.msgsz, 113U);
    EXPECT_EQ(call(""), 1);
    EXPECT_TRUE(same_record(sent(), expected("")));
}

TEST_P(TreeFile, IsCutAt1023CharactersWithAWarning) {
    StdoutCapture output;
    EXPECT_EQ(call(path_of(1023)), 1);
    EXPECT_TRUE(same_record(sent(), expected(path_of(1023))));
    EXPECT_EQ(output.so_far(), "");
    EXPECT_EQ(call(path_of(1024)), 1);
    EXPECT_TRUE(same_record(sent(), expected(path_of(1023))));
    EXPECT_EQ(output.stop(), overflow_warning(path_of(1023)));
}

TEST_P(TreeFile, IsNamedWholeInTheFailureReport) {
    const std::string file = path_of(1100);
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(call(file), -2003);
    const std::string name = GetParam().name;
    EXPECT_EQ(output.stop(), overflow_warning(file.substr(0, 1023)) + "zan_msg_send qid=" +
                                 std::to_string(g_zan_qid) + " ERROR:Invalid argument\n" + name +
                                 ":zan_msg_send fail!\n" + name + ": " + GetParam().report + "=" +
                                 file + "\n" + name + ": pid=" + std::to_string(getpid()) + "\n");
}

TEST_P(TreeFile, MustBeThere) {
    EXPECT_EQ(GetParam().call(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

// Only what says so carries a mode; the request behind it carries none.
using TreeMode = ConfigTest;
TEST_F(TreeMode, IsGoneWithItsRequest) {
    char file[] = "/tmp/dump";
    EXPECT_EQ(cfg_dump(INT_MIN, file), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_dump, "/tmp/dump", INT_MIN)));
    EXPECT_EQ(cfg_reload(file), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_reload, "/tmp/dump")));
}

// ---- cfg_print -------------------------------------------------------------

using Print = ConfigTest;

TEST_F(Print, SendsThePathAlone) {
    leave_traces();
    EXPECT_EQ(cfg_print(7, nullptr, "/sys/user:%d", 1), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_print, "/sys/user:1", 7)));
    EXPECT_EQ(record.msgsz, 111U);
}

TEST_F(Print, SendsThePathABlankAndTheText) {
    leave_traces();
    EXPECT_EQ(cfg_print(-1, "x", "/sys/user:%d", 1), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, "/sys/user:1 x", -1)));
    EXPECT_EQ(cfg_print(0, "", "/a"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, "/a ")));
    EXPECT_EQ(cfg_print(0, "%s %n", "%s", "%d"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, "%d %s %n")));
    EXPECT_EQ(cfg_print(0, nullptr, "%s", ""), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, "")));
}

// The count is what was stored, not what would have been.
TEST_F(Print, CutsThePayloadAt1023Characters) {
    StdoutCapture output;
    const std::string path = path_of(1000);
    for (const std::size_t length : {22U, 23U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string whole = path + " " + std::string(length, 'x');
        EXPECT_EQ(cfg_print(0, std::string(length, 'x').c_str(), "%s", path.c_str()), 1);
        EXPECT_TRUE(same_record(sent(), request(cmd_print, whole.substr(0, 1023))));
    }
    EXPECT_EQ(cfg_print(0, "lost", "%s", path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, path_of(1023))));
    EXPECT_EQ(cfg_print(0, nullptr, "%s", path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_print, path_of(1023))));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Print, NeedsAPath) {
    EXPECT_EQ(cfg_print(0, "x", nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
