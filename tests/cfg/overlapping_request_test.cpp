// SPDX-License-Identifier: MIT
//
// Requests that overlap because the API lock is not in force: each sends its own record
// and gets its own answer.  Functions of this program wrap the system's msgsnd() and
// msgrcv(), to run a whole second request inside the first.
#include "cfg/config_test.h"
#include "support/worker.h"

#include <gmock/gmock.h>

#include <sys/msg.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Called once, by the thread that set them: before its next send, after its next receive.
thread_local std::function<void()> before_send;
thread_local std::function<void()> after_receive;

void call_once(std::function<void()> &hook) {
    if (hook)
        std::exchange(hook, nullptr)();
}

} // namespace

extern "C" {
int __real_msgsnd(int qid, const void *msg, size_t size, int flags);
ssize_t __real_msgrcv(int qid, void *msg, size_t size, long type, int flags);

int __wrap_msgsnd(int qid, const void *msg, size_t size, int flags) {
    call_once(before_send);
    return __real_msgsnd(qid, msg, size, flags);
}

ssize_t __wrap_msgrcv(int qid, void *msg, size_t size, long type, int flags) {
    const ssize_t received = __real_msgrcv(qid, msg, size, type, flags);
    call_once(after_receive);
    return received;
}
}

namespace zan::test {
namespace {

// A request with what it sends, and what it makes of the answer "first".
struct Overlapped {
    const char *name;
    int type;
    int cmd;
    std::string payload;
    std::function<std::string()> make;
};

void PrintTo(const Overlapped &request, std::ostream *out) {
    *out << request.name;
}

std::string text_of(int result, const char *value) {
    return result == 1 ? value : "result " + std::to_string(result);
}

std::string result_of(int result) {
    return "result " + std::to_string(result);
}

const Overlapped overlapped[] = {
    {"cfg_getstr", class_cfg, cmd_get, "/first",
     [] {
         char value[32] = "";
         const int result = cfg_getstr(value, sizeof value, "/first");
         return text_of(result, value);
     }},
    {"cfg_setstr", class_cfg, cmd_set, "0/first value",
     [] { return result_of(cfg_setstr("value", "/first")); }},
    {"cfg_getattr", class_cfg, cmd_get_attr, "/first",
     [] { return std::string(reinterpret_cast<const char *>(cfg_getattr("/first"))); }},
    {"zan_convert_path", class_cfg, cmd_convert_path, "2/first",
     [] {
         char value[32] = "";
         const int result = zan_convert_path(value, sizeof value, 2, "/first");
         return text_of(result, value);
     }},
    {"zan_cfg_get_ifname", class_cfg, cmd_ifname, "/first",
     [] {
         char value[32] = "";
         const int result = zan_cfg_get_ifname(value, sizeof value, "/first");
         return text_of(result, value);
     }},
    {"cfg_get_module_pid", class_cfg, cmd_pid, "first",
     [] { return result_of(cfg_get_module_pid("first")); }},
    {"zan_loginauth", class_cfg, cmd_login, "first\nb\nc\nd",
     [] {
         zan_login_req login = {"first", "b", "c", "d", nullptr, -1};
         const int result = zan_loginauth(&login);
         return result_of(result) + " login " + std::to_string(login.result);
     }},
    {"zan_notify_unregister_value_changed", class_notify, cmd_unwatch, "/first",
     [] { return result_of(zan_notify_unregister_value_changed("/first")); }},
};

class OverlappingRequests : public ConfigTest, public testing::WithParamInterface<Overlapped> {
protected:
    void SetUp() override {
        ConfigTest::SetUp();
        zan_api_lock_destroy();
        daemon.on(GetParam().type, GetParam().cmd, answer("11 first"));
        expected_ = GetParam().make();
        first_ = sent().record;
    }

    // Makes the request with a second one, on another thread, at the hook; expects the
    // same bytes sent and the same made of the answer as without it.
    void expect_undisturbed_by(std::function<void()> &hook, const std::function<void()> &second) {
        hook = [&] {
            Worker worker(second);
            EXPECT_TRUE(worker.wait_until_done());
        };
        EXPECT_EQ(GetParam().make(), expected_);
        EXPECT_FALSE(hook) << "never called";
        const std::vector<SizedRecord> records = daemon.wait_for_records(2);
        ASSERT_EQ(records.size(), 2U);
        const auto is_first = [this](const SizedRecord &sent) {
            return sent.record.cmd() == GetParam().cmd && sent.record.type() == GetParam().type;
        };
        const auto own = std::find_if(records.begin(), records.end(), is_first);
        ASSERT_NE(own, records.end());
        Fields same{.mtype = first_.mtype,
                    .type = first_.type(),
                    .cmd = first_.cmd(),
                    .dst = first_.dst(),
                    .src = first_.src(),
                    .pid = first_.pid(),
                    .time = own->record.word(at::time),
                    .payload = GetParam().payload};
        EXPECT_TRUE(same_record(*own, same));
    }

    // One that writes all over its record and receives a long answer.
    void second_request() {
        daemon.once(class_cfg, cmd_array, answer(std::string(4000, '2')));
        char value[4001];
        EXPECT_EQ(cfg_getarray(value, sizeof value, "%s", std::string(1000, 'G').c_str()), 1);
        EXPECT_EQ(value, std::string(4000, '2'));
    }

private:
    std::string expected_;
    RawRecord first_;
};
INSTANTIATE_TEST_SUITE_P(Of, OverlappingRequests, testing::ValuesIn(overlapped),
                         [](const auto &request) { return request.param.name; });

TEST_P(OverlappingRequests, SendTheirOwnRecords) {
    expect_undisturbed_by(before_send, [this] { second_request(); });
}

TEST_P(OverlappingRequests, ReadTheirOwnAnswers) {
    expect_undisturbed_by(after_receive, [this] { second_request(); });
}

// A module that waits for an answer itself uses storage, too.
TEST_P(OverlappingRequests, AreNotDisturbedByAModulesOwnWait) {
    constexpr int nothing_sends_this = 30;
    raw_send(g_msq_qid, {.mtype = class_cfg,
                         .type = class_cfg,
                         .cmd = nothing_sends_this,
                         .payload = std::string(3000, 'w')});
    daemon.on(class_cfg, cmd_delete, answer(""));
    expect_undisturbed_by(before_send, [] {
        zan_resp resp = {};
        EXPECT_EQ(zan_client_recv_msq_response(class_cfg, nothing_sends_this, nullptr, &resp), 1);
        EXPECT_EQ(std::string(resp.ptr, static_cast<std::size_t>(resp.len)),
                  std::string(3000, 'w'));
        EXPECT_EQ(cfg_del("/counted as the second"), 1);
    });
}

class OverlappingAnswers : public ConfigTest {
protected:
    void SetUp() override {
        ConfigTest::SetUp();
        zan_api_lock_destroy();
    }
};

TEST_F(OverlappingAnswers, OfAModulesOwnWaitSurviveARequest) {
    raw_send(g_msq_qid,
             {.mtype = class_cfg, .type = class_cfg, .cmd = cmd_get, .payload = "first"});
    after_receive = [] {
        Worker other([] { EXPECT_EQ(cfg_setstr(std::string(1000, 'V').c_str(), "/a"), 1); });
        EXPECT_TRUE(other.wait_until_done());
    };
    zan_resp resp = {};
    EXPECT_EQ(zan_client_recv_msq_response(class_cfg, cmd_get, nullptr, &resp), 1);
    EXPECT_STREQ(resp.ptr, "first");
    EXPECT_EQ(resp.len, 5);
}

// After a failed second release, or an unregistration that the daemon answers with 0,
// a module's threads go on without the lock.
TEST_F(ConfigTest, RequestsOfEightThreadsStayApartWithoutTheLock) {
    constexpr int threads = 8;
    constexpr int rounds = 100;
    daemon.on(class_registration, cmd_unregister, negative(0));
    ASSERT_EQ(zan_unregister("probe", 7), 0);
    daemon.forget_records();

    const auto path = [](int thread) {
        return "/" + std::string(static_cast<std::size_t>(100 * thread + 50),
                                 static_cast<char>('a' + thread));
    };
    std::atomic<int> failed{0};
    {
        std::vector<std::unique_ptr<Worker>> workers;
        for (int thread = 0; thread < threads; ++thread)
            workers.push_back(std::make_unique<Worker>([&, thread] {
                const std::string value(900, static_cast<char>('A' + thread));
                for (int round = 0; round < rounds; ++round)
                    failed += cfg_setstr(value.c_str(), "%s", path(thread).c_str()) == 1 ? 0 : 1;
            }));
    }
    EXPECT_EQ(failed, 0);
    const std::vector<SizedRecord> records = daemon.records();
    ASSERT_EQ(records.size(), std::size_t{threads * rounds});
    int seen[threads] = {};
    for (const SizedRecord &record : records) {
        const int thread = record.record.bytes[at::data + 2] - 'a';
        ASSERT_TRUE(thread >= 0 && thread < threads);
        ++seen[thread];
        ASSERT_TRUE(same_record(
            record, request(cmd_set, "0" + path(thread) + " " +
                                         std::string(900, static_cast<char>('A' + thread)))));
    }
    for (const int count : seen)
        EXPECT_EQ(count, rounds);
}

} // namespace
} // namespace zan::test
