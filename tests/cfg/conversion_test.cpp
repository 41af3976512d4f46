// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"

#include <climits>

namespace zan::test {
namespace {

// ---- zan_convert -----------------------------------------------------------

class Convert : public ConfigTest {
protected:
    static int convert(int mode, std::string text) { return zan_convert(mode, text.data()); }
};

TEST_F(Convert, SendsTheTextUnformattedAndTheMode) {
    leave_traces();
    EXPECT_EQ(convert(-2, "100%d %s"), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_convert, "100%d %s", -2)));
    EXPECT_EQ(record.msgsz, 108U);
}

TEST_F(Convert, CutsTheTextAt1023CharactersWithAWarning) {
    StdoutCapture output;
    EXPECT_EQ(convert(0, path_of(1023)), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_convert, path_of(1023))));
    EXPECT_EQ(output.so_far(), "");
    EXPECT_EQ(convert(0, path_of(1024)), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_convert, path_of(1023))));
    EXPECT_EQ(output.stop(), overflow_warning(path_of(1023)));
}

TEST_F(Convert, NeedsAText) {
    EXPECT_EQ(zan_convert(1, nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

// ---- zan_convert_path ------------------------------------------------------

class ConvertPath : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_convert_path, replies); }

    // What a buffer, filled with '~' before, holds once the text has come back.
    std::string converted(const std::string &text, int size, std::size_t room = 2100) {
        std::string buffer(room, '~');
        answers(answer(text));
        EXPECT_EQ(zan_convert_path(buffer.data(), size, 2, "/a"), 1);
        return buffer;
    }

    char value[64] = "before";
};

TEST_F(ConvertPath, SendsTheKindAndThePathInOne) {
    leave_traces();
    for (int kind = 0; kind <= 9; ++kind) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(zan_convert_path(value, sizeof value, kind, "/sys/user:%d/%s", 3, "name"), 1);
        const SizedRecord record = sent();
        EXPECT_TRUE(same_record(
            record, request(cmd_convert_path, std::to_string(kind) + "/sys/user:3/name")));
        EXPECT_EQ(record.msgsz, 117U);
    }
    EXPECT_EQ(zan_convert_path(value, sizeof value, 5, "%s", "%d"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_convert_path, "5%d")));
}

TEST_F(ConvertPath, RefusesAKindThatIsNoDigit) {
    for (const int kind : {-1, 10, -48, INT_MAX, INT_MIN})
        EXPECT_EQ(zan_convert_path(value, sizeof value, kind, "/a"), -1) << kind;
    EXPECT_STREQ(value, "before");
    EXPECT_TRUE(sent_nothing());
}

TEST_F(ConvertPath, CutsThePathAt1022Characters) {
    StdoutCapture output;
    for (const std::size_t length : {1022U, 1023U, 1024U, 3000U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(zan_convert_path(value, sizeof value, 9, "%s", path_of(length).c_str()), 1);
        EXPECT_TRUE(same_record(sent(), request(cmd_convert_path, "9" + path_of(1022))));
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(ConvertPath, FitsItsAnswerIntoTheBuffer) {
    const std::string twenty = "0123456789abcdefghij";
    StdoutCapture output;
    const struct {
        int size;
        std::string expected; // with what is left of the buffer
    } rows[] = {
        {8, std::string("0123456") + '\0' + "~"},
        {1, std::string("") + '\0' + "~"},
        {2, std::string("0") + '\0' + "~"},
        {20, twenty.substr(0, 19) + '\0' + "~"},
        {21, twenty + '\0' + "~"},
        {30, twenty + '\0' + "~"},
        {0, "~"},
        {-1, "~"},
        {INT_MIN, "~"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        EXPECT_EQ(converted(twenty, row.size).substr(0, row.expected.size()), row.expected);
    }
    EXPECT_EQ(output.stop(), "");
}

// However large the buffer, a text that fits it is cut at the default bound; one
// that does not is cut by the buffer alone.
TEST_F(ConvertPath, CutsALongAnswerThatFitsAt1023Characters) {
    StdoutCapture output;
    EXPECT_EQ(converted(path_of(1023), 2000).substr(0, 1025), path_of(1023) + '\0' + "~");
    EXPECT_EQ(output.so_far(), "");
    EXPECT_EQ(converted(path_of(1500), 2000).substr(0, 1025), path_of(1023) + '\0' + "~");
    EXPECT_EQ(output.stop(), overflow_warning(path_of(1023)));
    StdoutCapture nothing;
    EXPECT_EQ(converted(path_of(2050), 2000).substr(0, 2001), path_of(1999) + '\0' + "~");
    EXPECT_EQ(nothing.stop(), "");
}

TEST_F(ConvertPath, TakesAHeaderOnlyAnswerForTheEmptyText) {
    leave_traces();
    answers({Reply{}});
    EXPECT_EQ(zan_convert_path(value, sizeof value, 1, "/a"), 1);
    EXPECT_STREQ(value, "");
}

TEST_F(ConvertPath, LeavesTheBufferWithoutAnAnswer) {
    answers(negative(-7, "no such path"));
    EXPECT_EQ(zan_convert_path(value, sizeof value, 1, "/a"), -7);
    EXPECT_STREQ(value, "before");
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(zan_convert_path(value, sizeof value, 1, "/a"), -2003);
    EXPECT_STREQ(value, "before");
}

TEST_F(ConvertPath, SendsItsRequestWithoutABufferToo) {
    for (const int size : {64, 3, 0, -1}) {
        SCOPED_TRACE(size);
        answers(answer("converted"));
        EXPECT_EQ(zan_convert_path(nullptr, size, 1, "/a"), 1);
        EXPECT_TRUE(same_record(sent(), request(cmd_convert_path, "1/a")));
    }
    answers(negative(-7, "no such path"));
    EXPECT_EQ(zan_convert_path(nullptr, 64, 1, "/a"), -7);
}

TEST_F(ConvertPath, NeedsAPath) {
    EXPECT_EQ(zan_convert_path(value, sizeof value, 1, nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

// ---- zan_cfg_get_ifname ----------------------------------------------------

class InterfaceName : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_ifname, replies); }

    char value[64] = "before";
};

TEST_F(InterfaceName, IsAskedForByTheFormattedPath) {
    leave_traces();
    answers(answer("eth0.1"));
    EXPECT_EQ(zan_cfg_get_ifname(value, sizeof value, "/LANDevice:%d/%s", 1, "Eth"), 1);
    EXPECT_STREQ(value, "eth0.1");
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_ifname, "/LANDevice:1/Eth")));
    EXPECT_EQ(record.msgsz, 116U);
    EXPECT_EQ(zan_cfg_get_ifname(value, sizeof value, "%s", path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_ifname, path_of(1023))));
}

TEST_F(InterfaceName, IsCutAtTheSizeWithAWarning) {
    StdoutCapture output;
    answers(answer("0123456789"));
    EXPECT_EQ(zan_cfg_get_ifname(value, 8, "/a"), 1);
    EXPECT_STREQ(value, "0123456");
    EXPECT_EQ(output.stop(), overflow_warning("0123456"));
    answers(answer("0123456789"));
    EXPECT_EQ(zan_cfg_get_ifname(value, 4, "/a"), 1); // below 5: 1024
    EXPECT_STREQ(value, "0123456789");
}

TEST_F(InterfaceName, IsLeftWhenTheDaemonRefuses) {
    answers(negative(-7, "none"));
    EXPECT_EQ(zan_cfg_get_ifname(value, sizeof value, "/a"), -7);
    EXPECT_STREQ(value, "before");
}

TEST_F(InterfaceName, SendsItsRequestWithoutABufferToo) {
    answers(answer("eth0.1"));
    EXPECT_EQ(zan_cfg_get_ifname(nullptr, 64, "/a"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_ifname, "/a")));
    answers(negative(-7, "none"));
    EXPECT_EQ(zan_cfg_get_ifname(nullptr, 64, "/a"), -7);
}

TEST_F(InterfaceName, NeedsAPath) {
    EXPECT_EQ(zan_cfg_get_ifname(value, sizeof value, nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
