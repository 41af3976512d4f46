// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <climits>
#include <cstring>

namespace zan::test {
namespace {

class Attributes : public ConfigTest {
protected:
    void answers(const Replies &replies) { daemon.once(class_cfg, cmd_get_attr, replies); }

    static const char *text_at(intptr_t address) { return reinterpret_cast<const char *>(address); }
};

// ---- reading ---------------------------------------------------------------

TEST_F(Attributes, AreAskedForByTheFormattedPath) {
    leave_traces();
    answers(answer("rw"));
    EXPECT_STREQ(text_at(cfg_getattr("/sys/user:%d", 3)), "rw");
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_get_attr, "/sys/user:3")));
    EXPECT_EQ(record.msgsz, 111U);
}

TEST_F(Attributes, AreAskedForByAPathCutAt1023Characters) {
    for (const std::size_t length : {1023U, 1024U, 3000U}) {
        SCOPED_TRACE(length);
        cfg_getattr("%s", path_of(length).c_str());
        EXPECT_TRUE(same_record(sent(), request(cmd_get_attr, path_of(1023))));
    }
}

TEST_F(Attributes, AreTheTextOfAnyResultFromZeroUp) {
    for (const int result : {0, 1, 2, INT_MAX}) {
        SCOPED_TRACE(result);
        answers({{.result = result, .payload = "text " + std::to_string(result)}});
        EXPECT_EQ(text_at(cfg_getattr("/a")), "text " + std::to_string(result));
    }
}

// The address is not cut to an int, and nothing but a request takes the text's place.
TEST_F(Attributes, StayReadableUntilTheNextRequest) {
    answers(answer("first"));
    const intptr_t address = cfg_getattr("/a");
    EXPECT_STREQ(text_at(address), "first");

    // What is no request of the configuration leaves them alone.
    zan_send("other", "message", 7);
    zan_ctl_request("command line");
    zan_fad_send(42, 1, 0, 42, "a name");
    zan_report_event_result(1, 2);
    zan_do_cwmp_request(1, "data", 4);
    zan_firewall_request("rule", "port");
    raw_send(g_msq_qid, {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = "hello"});
    zan_recv_msq();
    zan_fad_recv_msq();
    // From another thread, too, as long as it makes no request.
    std::string seen;
    std::thread([&] { seen = text_at(address); }).join();
    EXPECT_EQ(seen, "first");
    EXPECT_STREQ(text_at(address), "first");

    // The next attributes that are read replace the text, in the same place.
    answers(answer("the second"));
    EXPECT_EQ(cfg_getattr("/b"), address);
    EXPECT_STREQ(text_at(address), "the second");
}

TEST_F(Attributes, StayWhileAnotherThreadWaitsToReplaceThem) {
    answers(answer("mine"));
    const intptr_t address = cfg_getattr("/a");
    zan_api_lock();
    Worker other([] { cfg_del("/b"); });
    ASSERT_TRUE(other.wait_until_blocked());
    EXPECT_STREQ(text_at(address), "mine");
    zan_api_unlock();
    EXPECT_TRUE(other.wait_until_done());
}

TEST_F(Attributes, AreTheEmptyTextInAHeaderOnlyAnswer) {
    leave_traces();
    answers({Reply{}});
    const intptr_t address = cfg_getattr("/a");
    ASSERT_NE(address, 0);
    EXPECT_STREQ(text_at(address), "");
}

TEST_F(Attributes, OfAWholeRecordAreEnded) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    answers(answer(std::string(35000, 'w')));
    EXPECT_EQ(text_at(cfg_getattr("/a")), std::string(35000, 'w'));
    answers(answer("x"));
    EXPECT_STREQ(text_at(cfg_getattr("/a")), "x");
}

// -2003 is the code of a send that failed; the daemon's is a refusal like any other.
TEST_F(Attributes, AreZeroWhenTheDaemonRefuses) {
    StdoutCapture output;
    answers(answer("rw"));
    EXPECT_STREQ(text_at(cfg_getattr("/a")), "rw");
    for (const int result : {-1, -2003, -9002, INT_MIN}) {
        SCOPED_TRACE(result);
        answers(negative(result, "no such node"));
        EXPECT_EQ(cfg_getattr("/a"), 0);
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Attributes, NeedAPath) {
    EXPECT_EQ(cfg_getattr(nullptr), 0);
    EXPECT_TRUE(sent_nothing());
}

// ---- writing ---------------------------------------------------------------

TEST_F(Attributes, AreWrittenBehindThePathAndABlank) {
    leave_traces();
    EXPECT_EQ(cfg_setattr("100%d%n a b", "/sys/%s:%d", "user", 2), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_set_attr, "/sys/user:2 100%d%n a b")));
    EXPECT_EQ(record.msgsz, 123U);
    EXPECT_EQ(cfg_setattr("", "/a"), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set_attr, "/a ")));
}

TEST_F(Attributes, AreCutWithTheirPathAt1022Characters) {
    StdoutCapture output;
    const std::string path = path_of(1000);
    for (const std::size_t length : {20U, 21U, 22U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        EXPECT_EQ(cfg_setattr(text.c_str(), "%s", path.c_str()), 1);
        EXPECT_TRUE(
            same_record(sent(), request(cmd_set_attr, (path + " " + text).substr(0, 1022))));
    }
    EXPECT_EQ(cfg_setattr("lost", "%s", path_of(1022).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set_attr, path_of(1022))));
    EXPECT_EQ(cfg_setattr("lost", "%s", path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), request(cmd_set_attr, path_of(1022))));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Attributes, AreNotWrittenWithoutTextOrPath) {
    EXPECT_EQ(cfg_setattr(nullptr, "/a"), -1);
    EXPECT_EQ(cfg_setattr("ro", nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
