// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>

namespace zan::test {
namespace {

constexpr int register_value = 0;
constexpr int register_event = 1;
constexpr int unregister_value = 2;
constexpr int unregister_event = 3;

class Subscription : public ConfigTest {
protected:
    // Compares the record that the call sends: `len` counts the whole path, and what
    // the payload does not fill reads as zeros on the queue.
    template<typename Call>
    testing::AssertionResult sends(Call call, int command, const std::string &payload,
                                   std::size_t len) {
        const std::time_t before = std::time(nullptr);
        const int result = call();
        const std::time_t after = std::time(nullptr);
        const SizedRecord record = sent();
        const std::int32_t time = record.record.word(at::time);
        if (result != 1)
            return testing::AssertionFailure() << "result is " << result;
        if (time < before || time > after)
            return testing::AssertionFailure() << "sent at " << time << ", not at " << after;
        std::string filled = payload;
        filled.resize(len, '\0');
        return same_record(record, {.mtype = g_msq_qid,
                                    .type = class_notify,
                                    .cmd = command,
                                    .dst = "ZAN",
                                    .src = "probe",
                                    .pid = static_cast<std::int32_t>(getpid()),
                                    .time = time,
                                    .payload = filled});
    }

    // A send that is refused because the record would have to be longer than it is.
    std::string refused_send(const std::string &function) const {
        return "zan_msg_send qid=" + std::to_string(daemon.request_queue()) +
               " ERROR:Invalid argument\n" + function + ":zan_msg_send fail!\n" + function +
               ": pid=" + std::to_string(getpid()) + "\n";
    }
};

using RegisterValue = Subscription;
using UnregisterValue = Subscription;
using Event = Subscription;

std::string settings(unsigned char first, unsigned char second) {
    return {static_cast<char>(first), static_cast<char>(second)};
}

// ---- values ----------------------------------------------------------------

TEST_F(RegisterValue, SendsTwoSettingBytesAndThePath) {
    leave_traces();
    StdoutCapture output;
    EXPECT_TRUE(sends([] { return zan_notify_register_value_changed("/a", 7, 3); }, register_value,
                      settings(3, 7) + "/a", 4));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(RegisterValue, CountsNoTerminator) {
    EXPECT_EQ(zan_notify_register_value_changed("/a", 0, 0), 1);
    const SizedRecord record = sent();
    EXPECT_EQ(record.record.len(), 4);
    EXPECT_EQ(record.msgsz, 104U);
}

TEST_F(RegisterValue, SendsThePathUnformatted) {
    EXPECT_TRUE(sends([] { return zan_notify_register_value_changed("/a%d%s%%", 0, 0); },
                      register_value, settings(0, 0) + "/a%d%s%%", 10));
}

TEST_F(RegisterValue, SendsTheLargestOption) {
    EXPECT_TRUE(sends([] { return zan_notify_register_value_changed("/a", 255, 0); },
                      register_value, settings(0, 255) + "/a", 4));
}

TEST_F(RegisterValue, RefusesALargerOptionAndSendsNothing) {
    StdoutCapture output;
    EXPECT_EQ(zan_notify_register_value_changed("/a", 256, 0), -1);
    EXPECT_EQ(zan_notify_register_value_changed("/a", UINT_MAX, 0), -1);
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(output.stop(), "");
}

// The option is checked under the lock: a refused call, too, waits for its turn.
TEST_F(RegisterValue, WaitsForTheApiLockBeforeItRefusesAnOption) {
    int result = 0;
    zan_api_lock();
    Worker caller([&] { result = zan_notify_register_value_changed("/a", 256, 0); });
    EXPECT_TRUE(caller.wait_until_blocked());
    zan_api_unlock();
    ASSERT_TRUE(caller.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(LockProbe(zan_api_lock, zan_api_unlock).is_free());
}

TEST_F(RegisterValue, LetsSigtermThroughAfterItRefusesAnOption) {
    sigset_t sigterm;
    sigemptyset(&sigterm);
    sigaddset(&sigterm, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &sigterm, nullptr);
    EXPECT_EQ(zan_notify_register_value_changed("/a", 256, 0), -1);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
}

TEST_F(RegisterValue, SendsTheLowByteOfTheFlag) {
    const struct {
        int flag;
        unsigned char byte;
    } rows[] = {{4660, 52}, {255, 255}, {256, 0}, {-1, 255}, {-2, 254}, {INT_MIN, 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.flag);
        EXPECT_TRUE(sends([&] { return zan_notify_register_value_changed("/a", 1, row.flag); },
                          register_value, settings(row.byte, 1) + "/a", 4));
    }
}

TEST_F(RegisterValue, SendsAPathOf1023CharactersWhole) {
    StdoutCapture output;
    const std::string path = path_of(1023);
    EXPECT_TRUE(sends([&] { return zan_notify_register_value_changed(path.c_str(), 1, 2); },
                      register_value, settings(2, 1) + path, 1025));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(RegisterValue, CutsALongerPathButKeepsItsLength) {
    for (const std::size_t length : {1024U, 1025U, 6000U}) {
        SCOPED_TRACE(length);
        leave_traces();
        StdoutCapture output;
        const std::string path = path_of(length);
        EXPECT_TRUE(sends([&] { return zan_notify_register_value_changed(path.c_str(), 1, 2); },
                          register_value, settings(2, 1) + path.substr(0, 1023), length + 2));
        EXPECT_EQ(output.stop(), overflow_warning(path.substr(0, 1023)));
    }
}

TEST_F(UnregisterValue, SendsThePathAlone) {
    leave_traces();
    StdoutCapture output;
    EXPECT_TRUE(sends([] { return zan_notify_unregister_value_changed("/a/b%d"); },
                      unregister_value, "/a/b%d", 6));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(UnregisterValue, SendsAPathOf1024CharactersWhole) {
    StdoutCapture output;
    const std::string path = path_of(1024);
    EXPECT_TRUE(sends([&] { return zan_notify_unregister_value_changed(path.c_str()); },
                      unregister_value, path, 1024));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(UnregisterValue, CutsALongerPathButKeepsItsLength) {
    for (const std::size_t length : {1025U, 1026U, 6000U}) {
        SCOPED_TRACE(length);
        leave_traces();
        StdoutCapture output;
        const std::string path = path_of(length);
        EXPECT_TRUE(sends([&] { return zan_notify_unregister_value_changed(path.c_str()); },
                          unregister_value, path.substr(0, 1024), length));
        EXPECT_EQ(output.stop(), overflow_warning(path.substr(0, 1024)));
    }
}

TEST_F(Subscription, RefusesANullPathAndSendsNothing) {
    StdoutCapture output;
    EXPECT_EQ(zan_notify_register_value_changed(nullptr, 0, 0), -1);
    EXPECT_EQ(zan_notify_unregister_value_changed(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Subscription, SendsTheEmptyPath) {
    EXPECT_TRUE(sends([] { return zan_notify_register_value_changed("", 0, 0); }, register_value,
                      settings(0, 0), 2));
    EXPECT_TRUE(
        sends([] { return zan_notify_unregister_value_changed(""); }, unregister_value, "", 0));
}

// ---- paths beyond the record -----------------------------------------------

TEST_F(Subscription, SendsTheLongestPathThatARecordCanCount) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    StdoutCapture output;
    const std::string path = path_of(35000);
    const std::string shorter = path.substr(0, 34998);
    EXPECT_TRUE(sends([&] { return zan_notify_register_value_changed(shorter.c_str(), 1, 2); },
                      register_value, settings(2, 1) + path.substr(0, 1023), 35000));
    EXPECT_TRUE(sends([&] { return zan_notify_unregister_value_changed(path.c_str()); },
                      unregister_value, path.substr(0, 1024), 35000));
}

TEST_F(RegisterValue, RefusesAPathThatNoRecordCanCount) {
    for (const std::size_t length : {34999U, 35000U, 70000U}) {
        SCOPED_TRACE(length);
        StdoutCapture output;
        const std::string path = path_of(length);
        EXPECT_EQ(zan_notify_register_value_changed(path.c_str(), 0, 0), -2003);
        EXPECT_EQ(output.stop(), overflow_warning(path.substr(0, 1023)) +
                                     refused_send("zan_notify_register_value_changed"));
    }
    EXPECT_TRUE(sent_nothing());
}

TEST_F(UnregisterValue, RefusesAPathThatNoRecordCanCount) {
    for (const std::size_t length : {35001U, 70000U}) {
        SCOPED_TRACE(length);
        StdoutCapture output;
        const std::string path = path_of(length);
        EXPECT_EQ(zan_notify_unregister_value_changed(path.c_str()), -2003);
        EXPECT_EQ(output.stop(), overflow_warning(path.substr(0, 1024)) +
                                     refused_send("zan_notify_unregister_value_changed"));
    }
    EXPECT_TRUE(sent_nothing());
}

// ---- events ----------------------------------------------------------------

TEST_F(Event, SendsTheCodeInFourBytes) {
    leave_traces();
    for (const int event : {0, 1, 0x01020304, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(event);
        std::string code(4, '\0');
        std::memcpy(code.data(), &event, sizeof event);
        EXPECT_TRUE(
            sends([&] { return zan_notify_register_event(event); }, register_event, code, 4));
        EXPECT_TRUE(
            sends([&] { return zan_notify_unregister_event(event); }, unregister_event, code, 4));
    }
}

TEST_F(Event, PutsTheLowByteFirst) {
    EXPECT_EQ(zan_notify_register_event(0x01020304), 1);
    const SizedRecord record = sent();
    EXPECT_EQ(record.payload(), "\x04\x03\x02\x01");
    EXPECT_EQ(record.msgsz, 104U);
}

} // namespace
} // namespace zan::test
