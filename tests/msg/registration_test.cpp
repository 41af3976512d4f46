// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/daemon.h"
#include "support/locks.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::AnyOf;

constexpr char request_queue_file[] = "/tmp/zan_qid";
constexpr char registration_queue_file[] = "/tmp/zan_req_qid";
constexpr char key_file[] = "/tmp/probe_7.msq";
constexpr char second_key_file[] = "/tmp/probe_1.msq";

std::string number(long value) {
    return std::to_string(value);
}

std::string send_error(int qid) {
    return "zan_msg_send qid=" + number(qid) + " ERROR:Invalid argument\n";
}

std::string receive_error(int qid, const std::string &reason) {
    return "zan_msg_recv qid=" + number(qid) + " ERROR:" + reason + "\n";
}

std::string retry_line(const std::string &function, int left, int proj_id) {
    return function + ":register fail! Retry " + number(left) + "[" + number(proj_id) + "]...\n";
}

int queue_of_key(const std::string &path, int proj_id) {
    return msgget(ftok(path.c_str(), proj_id), 0);
}

// ---- the daemon's files -----------------------------------------------------------

struct IdFile {
    const char *name;
    const char *path;
    int (*read)();
    const char *missing_line;
};

void PrintTo(const IdFile &file, std::ostream *out) {
    *out << file.name;
}

class QueueIdFile : public testing::TestWithParam<IdFile> {
protected:
    ~QueueIdFile() override { unlink(GetParam().path); }

    int read(std::string_view contents) {
        write_file(GetParam().path, contents);
        return GetParam().read();
    }
};

TEST_P(QueueIdFile, HoldsDecimalText) {
    StdoutCapture out;
    EXPECT_EQ(read("0"), 0);
    EXPECT_EQ(read("32769"), 32769);
    EXPECT_EQ(read("32769\n"), 32769);
    EXPECT_EQ(read("  42"), 42);
    EXPECT_EQ(read("+42"), 42);
    EXPECT_EQ(read("-5"), -5);
    EXPECT_EQ(read("2147483647"), INT32_MAX);
    EXPECT_EQ(out.stop(), "");
}

TEST_P(QueueIdFile, AnythingElseReadsAsFarAsItIsANumber) {
    EXPECT_EQ(read(""), 0);
    EXPECT_EQ(read("garbage"), 0);
    EXPECT_EQ(read("12garbage"), 12);
    EXPECT_EQ(read(std::string_view("12\0"
                                    "34",
                                    5)),
              12);
    EXPECT_EQ(read("\xff\xfe"), 0);
}

TEST_P(QueueIdFile, SixteenBytesAreRead) {
    EXPECT_EQ(read("0000000000000042"), 42);
    EXPECT_EQ(read("00000000000000429"), 42);
    EXPECT_EQ(read("0000000000000042" + std::string(5000, '9')), 42);
    EXPECT_EQ(read("               7"), 7);
    EXPECT_EQ(read("                7"), 0);
}

TEST_P(QueueIdFile, ANumberOutOfRangeIsTheLargest) {
    EXPECT_EQ(read("2147483648"), INT32_MAX);
    EXPECT_EQ(read("9999999999999999"), INT32_MAX);
    EXPECT_EQ(read("-999999999999999"), INT32_MIN);
}

TEST_P(QueueIdFile, AMissingFileIsReported) {
    unlink(GetParam().path);
    StdoutCapture out;
    EXPECT_EQ(GetParam().read(), -1);
    EXPECT_EQ(out.stop(), GetParam().missing_line);
}

TEST_P(QueueIdFile, AFileThatCannotBeReadIsReported) {
    unlink(GetParam().path);
    ASSERT_EQ(symlink("/tmp/registration_test_nowhere", GetParam().path), 0);
    StdoutCapture out;
    EXPECT_EQ(GetParam().read(), -1);
    EXPECT_EQ(out.stop(), GetParam().missing_line);
}

constexpr IdFile request_id = {"request", request_queue_file, zan_get_msq_qid,
                               "zan_get_msq_qid:The file /tmp/zan_qid is not exist\n"};
constexpr IdFile registration_id = {"registration", registration_queue_file, zan_get_reg_msq_qid,
                                    "zan_get_reg_msq_qid:The file /tmp/zan_req_qid is not exist\n"};

INSTANTIATE_TEST_SUITE_P(, QueueIdFile, testing::Values(request_id, registration_id),
                         [](const auto &param) { return std::string(param.param.name); });

std::string missing_files() {
    return std::string(request_id.missing_line) + registration_id.missing_line;
}

// ---- registering --------------------------------------------------------------------

// Removes what modules leave behind: the queues under their keys.
void remove_module_queues(const std::string &path) {
    if (!file_exists(path))
        return;
    for (int proj_id = 0; proj_id <= 3; ++proj_id)
        remove_queue(queue_of_key(path, proj_id));
    unlink(path.c_str());
}

void remove_leftovers() {
    remove_module_queues(key_file);
    remove_module_queues(second_key_file);
}

Fields registration(int qid, const std::string &name = "probe", int instance = 7) {
    return {.mtype = qid, .type = 3, .cmd = 0, .src = name, .pid = instance};
}

Fields unregistration(int qid, const std::string &name = "probe", int instance = 7) {
    return {.mtype = qid, .type = 3, .cmd = 1, .src = name, .pid = instance};
}

class Registration : public testing::Test {
protected:
    ~Registration() override {
        remove_leftovers();
        g_zan_qid = g_reg_msq_qid = g_msq_qid = g_msq_qid2 = -1;
        g_module_name[0] = '\0';
    }

    // The queues of the attempts so far, as they announced themselves.
    std::vector<int> announced(std::size_t count) const {
        std::vector<int> queues;
        for (const SizedRecord &record : daemon.wait_for_records(count))
            queues.push_back(static_cast<int>(record.record.mtype));
        return queues;
    }

    ScriptedDaemon daemon;
};

TEST_F(Registration, AnnouncesTheModulesQueue) {
    StdoutCapture out;
    const int qid = zan_register("probe", 7);
    EXPECT_EQ(out.stop(), "");
    EXPECT_GT(qid, 0);
    EXPECT_EQ(queue_of_key(key_file, 0), qid);
    EXPECT_EQ(g_msq_qid, qid);
    EXPECT_EQ(g_zan_qid, daemon.request_queue());
    EXPECT_EQ(g_reg_msq_qid, daemon.registration_queue());
    EXPECT_EQ(g_msq_qid2, -1);
    EXPECT_STREQ(g_module_name, "probe");
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], registration(qid)));
}

TEST(Identity, IsUnknownAtStart) {
    EXPECT_EQ(g_zan_qid, -1);
    EXPECT_EQ(g_reg_msq_qid, -1);
    EXPECT_EQ(g_msq_qid, -1);
    EXPECT_EQ(g_msq_qid2, -1);
    EXPECT_STREQ(g_module_name, "");
}

TEST_F(Registration, InitialisesTheApiLock) {
    ASSERT_GT(zan_register("probe", 7), 0);
    EXPECT_FALSE(sigterm_is_blocked());
    zan_api_lock();
    EXPECT_TRUE(sigterm_is_blocked());
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(Registration, AnyResultFromZeroUpIsSuccess) {
    daemon.once(3, 0, {{.result = 0}});
    EXPECT_GT(zan_register("probe", 7), 0);
    EXPECT_EQ(daemon.records().size(), 1u);
}

TEST_F(Registration, AnAnswerForAnotherQueueIsLeftAlone) {
    daemon.once(3, 0, {{.result = -9, .mtype = 999999}, {.result = 1}});
    EXPECT_GT(zan_register("probe", 7), 0);
    EXPECT_EQ(queue_length(daemon.registration_queue()), 1);
}

TEST_F(Registration, WaitsForALateAnswer) {
    daemon.once(3, 0, {{.held = true}});
    int qid = -1;
    Worker module([&] { qid = zan_register("probe", 7); });
    daemon.wait_for_records(1);
    EXPECT_TRUE(module.wait_until_blocked());
    daemon.release();
    ASSERT_TRUE(module.wait_until_done());
    EXPECT_GT(qid, 0);
}

TEST_F(Registration, ARefusalIsTriedThreeTimesMoreUnderOtherKeys) {
    for (const int result : {-11, -12, -13, -14})
        daemon.once(3, 0, negative(result, "refused"));
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -14);
    EXPECT_EQ(out.stop(), retry_line("zan_register_msq", 3, 1) +
                              retry_line("zan_register_msq", 2, 2) +
                              retry_line("zan_register_msq", 1, 3));
    const auto queues = announced(4);
    ASSERT_EQ(queues.size(), 4u);
    const auto records = daemon.records();
    for (std::size_t i = 0; i < queues.size(); ++i) {
        EXPECT_FALSE(queue_exists(queues[i])) << i;
        EXPECT_TRUE(same_record(records[i], registration(queues[i])));
    }
    EXPECT_TRUE(file_exists(key_file));
}

TEST_F(Registration, TheQueueOfAFailedAttemptIsGoneBeforeTheNext) {
    daemon.once(3, 0, negative(-1));
    daemon.once(3, 0, {{.held = true}});
    int qid = -1;
    Worker module([&] { qid = zan_register("probe", 7); });
    const auto queues = announced(2);
    EXPECT_FALSE(queue_exists(queues[0]));
    EXPECT_TRUE(queue_exists(queues[1]));
    daemon.release();
    ASSERT_TRUE(module.wait_until_done());
    EXPECT_EQ(qid, queues[1]);
}

TEST_F(Registration, ARetryThatSucceedsIsTheLast) {
    daemon.once(3, 0, negative(-1));
    daemon.once(3, 0, negative(-2));
    StdoutCapture out;
    const int qid = zan_register("probe", 7);
    EXPECT_EQ(out.stop(),
              retry_line("zan_register_msq", 3, 1) + retry_line("zan_register_msq", 2, 2));
    EXPECT_GT(qid, 0);
    EXPECT_EQ(g_msq_qid, qid);
    EXPECT_EQ(queue_of_key(key_file, 2), qid);
    EXPECT_EQ(queue_of_key(key_file, 0), -1);
    EXPECT_EQ(queue_of_key(key_file, 1), -1);
    EXPECT_EQ(daemon.records().size(), 3u);
}

// A module that was killed could not remove its queue.
TEST_F(Registration, AQueueLeftBehindIsAvoidedAndKept) {
    const int left = zan_msg_create("probe", 7);
    StdoutCapture out;
    const int qid = zan_register("probe", 7);
    EXPECT_EQ(out.stop(),
              "zan_msg_create_by_id ERROR:File exists\n" + retry_line("zan_register_msq", 3, 1));
    EXPECT_EQ(queue_of_key(key_file, 1), qid);
    EXPECT_TRUE(queue_exists(left));
    EXPECT_EQ(daemon.records().size(), 1u);
}

TEST_F(Registration, FourQueuesLeftBehindAreTooMany) {
    for (int proj_id = 0; proj_id <= 3; ++proj_id)
        ASSERT_GE(zan_msg_create_by_id("probe", 7, proj_id), 0);
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2105);
    const std::string exists = "zan_msg_create_by_id ERROR:File exists\n";
    EXPECT_EQ(out.stop(), exists + retry_line("zan_register_msq", 3, 1) + exists +
                              retry_line("zan_register_msq", 2, 2) + exists +
                              retry_line("zan_register_msq", 1, 3) + exists);
    EXPECT_EQ(g_msq_qid, -1);
    EXPECT_EQ(daemon.records().size(), 0u);
}

TEST_F(Registration, WithoutADaemonItFails) {
    unlink(request_queue_file);
    unlink(registration_queue_file);
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2105);
    EXPECT_EQ(out.stop(), missing_files() + retry_line("zan_register_msq", 3, 1) + missing_files() +
                              retry_line("zan_register_msq", 2, 2) + missing_files() +
                              retry_line("zan_register_msq", 1, 3) + missing_files());
    EXPECT_EQ(g_zan_qid, -1);
    EXPECT_EQ(g_reg_msq_qid, -1);
    for (int proj_id = 0; proj_id <= 3; ++proj_id)
        EXPECT_EQ(queue_of_key(key_file, proj_id), -1) << proj_id;
}

class MissingIdFile : public Registration, public testing::WithParamInterface<IdFile> {};

TEST_P(MissingIdFile, IsEnoughToFail) {
    unlink(GetParam().path);
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2105);
    const std::string missing = GetParam().missing_line;
    EXPECT_EQ(out.stop(), missing + retry_line("zan_register_msq", 3, 1) + missing +
                              retry_line("zan_register_msq", 2, 2) + missing +
                              retry_line("zan_register_msq", 1, 3) + missing);
    EXPECT_EQ(daemon.records().size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(, MissingIdFile, testing::Values(request_id, registration_id),
                         [](const auto &param) { return std::string(param.param.name); });

TEST_F(Registration, ADaemonThatIsGoneCannotBeSentTo) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2003);
    const std::string failed = send_error(daemon.request_queue());
    EXPECT_EQ(out.stop(), failed + retry_line("zan_register_msq", 3, 1) + failed +
                              retry_line("zan_register_msq", 2, 2) + failed +
                              retry_line("zan_register_msq", 1, 3) + failed);
    for (int proj_id = 0; proj_id <= 3; ++proj_id)
        EXPECT_EQ(queue_of_key(key_file, proj_id), -1) << proj_id;
}

TEST_F(Registration, ADaemonThatDiesBeforeItsAnswerEndsTheWait) {
    daemon.once(3, 0, die());
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2003);
    const std::string failed = send_error(daemon.request_queue());
    const std::string retries = retry_line("zan_register_msq", 3, 1) + failed +
                                retry_line("zan_register_msq", 2, 2) + failed +
                                retry_line("zan_register_msq", 1, 3) + failed;
    const int waited_on = daemon.registration_queue();
    EXPECT_THAT(out.stop(), AnyOf(receive_error(waited_on, "Identifier removed") + retries,
                                  receive_error(waited_on, "Invalid argument") + retries));
}

TEST_F(Registration, ANullNameIsRefused) {
    EXPECT_EQ(zan_register(nullptr, 7), -1);
    EXPECT_EQ(zan_register_msqid(nullptr), -1);
    EXPECT_EQ(zan_unregister(nullptr, 7), -1);
    EXPECT_EQ(zan_unregister_msqid(nullptr, 7, 1), -1);
    EXPECT_EQ(daemon.records().size(), 0u);
}

// ---- clashing ids -------------------------------------------------------------------

// The ids that the next queues will get, when nobody else creates any.
struct NextIds {
    int first;
    int step;

    NextIds() {
        const int before = next_queue_id();
        first = next_queue_id();
        step = (first - before) / 2; // each look uses up two
    }
    int attempt(int index) const { return first + index * step; }
};

TEST_F(Registration, AnIdThatIsTheDaemonsIsRefused) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    const NextIds ids;
    const int clash = ids.attempt(3); // that of the last retry, whose result is returned
    write_file(request_queue_file, number(clash));
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -2105);
    EXPECT_EQ(out.stop(), send_error(clash) + retry_line("zan_register_msq", 3, 1) +
                              send_error(clash) + retry_line("zan_register_msq", 2, 2) +
                              send_error(clash) + retry_line("zan_register_msq", 1, 3) +
                              "!!!Error: the msq_qid=" + number(clash) +
                              " is same as zan_qid=" + number(clash) +
                              " or zan_req_qid=" + number(daemon.registration_queue()) + "\n");
    EXPECT_FALSE(queue_exists(clash));
}

TEST_F(Registration, AnIdThatIsTheRegistrationQueuesIsRefused) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    const NextIds ids;
    const int clash = ids.attempt(0);
    write_file(registration_queue_file, number(clash));
    StdoutCapture out;
    EXPECT_EQ(zan_register("probe", 7), -1);
    const std::string gone = receive_error(clash, "Invalid argument");
    EXPECT_EQ(out.stop(), "!!!Error: the msq_qid=" + number(clash) + " is same as zan_qid=" +
                              number(daemon.request_queue()) + " or zan_req_qid=" + number(clash) +
                              "\n" + retry_line("zan_register_msq", 3, 1) + gone +
                              retry_line("zan_register_msq", 2, 2) + gone +
                              retry_line("zan_register_msq", 1, 3) + gone);
    EXPECT_EQ(daemon.wait_for_records(3).size(), 3u);
}

// ---- the queue id 0 -------------------------------------------------------------------

// Keeps the daemon's queues out of the slot where the id 0 belongs.
class SlotZero {
protected:
    // The next queue of all gets it; false where the kernel cannot be told.
    bool next_is_zero() {
        slot.remove();
        std::ofstream setting("/proc/sys/kernel/msg_next_id");
        setting << 0 << std::flush;
        return setting.good();
    }

private:
    RawQueue slot;
};

class QueueZero : protected SlotZero, public Registration {};

// A queue's id is the type of the record that announces it, and a type of 0 cannot be
// sent.
TEST_F(QueueZero, CannotBeAnnouncedAndIsReplaced) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    if (!next_is_zero())
        GTEST_SKIP() << "kernel.msg_next_id cannot be set";
    StdoutCapture out;
    const int qid = zan_register("probe", 7);
    EXPECT_EQ(out.stop(),
              send_error(daemon.request_queue()) + retry_line("zan_register_msq", 3, 1));
    EXPECT_GT(qid, 0);
    EXPECT_FALSE(queue_exists(0));
    EXPECT_EQ(announced(1), std::vector{qid});
}

// ---- names too long -----------------------------------------------------------------

class LongName : public Registration, public testing::WithParamInterface<std::size_t> {
protected:
    LongName() {
        for (std::size_t i = 0; i < GetParam(); ++i)
            name += static_cast<char>('a' + i % 26);
    }
    ~LongName() override { remove_module_queues(long_key_file()); }

    std::string long_key_file() const { return ("/tmp/" + name + "_7.msq").substr(0, 63); }

    // The name runs over the fields behind it, apart from those set after it.
    SizedRecord expected(const Fields &fields) const {
        SizedRecord record;
        record.record.mtype = fields.mtype;
        const std::size_t copied = std::min<std::size_t>(name.size(), 1023);
        record.record.set_bytes(at::src, name.substr(0, copied));
        record.record.set_word(at::type, fields.type);
        record.record.set_word(at::cmd, fields.cmd);
        record.record.set_word(at::pid, fields.pid);
        record.record.set_word(at::len, 0);
        return record;
    }

    // One copy goes to g_module_name, one into the record.
    std::string warning_in_record() const {
        return name.size() > 1023 ? overflow_warning(name.substr(0, 1023)) : "";
    }

    std::string name;
};

TEST_P(LongName, RunsOverTheFieldsBehindIt) {
    StdoutCapture out;
    const int qid = zan_register(name.c_str(), 7);
    EXPECT_EQ(out.stop(),
              (name.size() > 31 ? overflow_warning(name.substr(0, 31)) : "") + warning_in_record());
    ASSERT_GT(qid, 0);
    EXPECT_EQ(queue_of_key(long_key_file(), 0), qid);
    EXPECT_EQ(g_module_name, name.substr(0, 31));
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], expected(registration(qid))));
}

TEST_P(LongName, RunsOverWhenItUnregisters) {
    StdoutCapture out;
    const int qid = zan_register(name.c_str(), 7);
    ASSERT_GT(qid, 0);
    out.stop();
    StdoutCapture out2;
    EXPECT_EQ(zan_unregister_msqid(name.c_str(), 7, qid), 0);
    EXPECT_EQ(out2.stop(), warning_in_record());
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(same_record(records[1], expected(unregistration(qid))));
    EXPECT_FALSE(queue_exists(qid));
    EXPECT_FALSE(file_exists(long_key_file()));
}

INSTANTIATE_TEST_SUITE_P(, LongName,
                         testing::Values(31, 32, 33, 36, 40, 44, 48, 52, 55, 56, 57, 60, 61, 100,
                                         1022, 1023, 1024, 2000, 40000));

// ---- the second queue -----------------------------------------------------------------

class SecondQueue : public Registration {
protected:
    void SetUp() override {
        main_queue = zan_register("probe", 7);
        ASSERT_GT(main_queue, 0);
        daemon.forget_records();
    }
    int main_queue = -1;
};

TEST_F(SecondQueue, IsInstanceOne) {
    StdoutCapture out;
    const int qid = zan_register_msqid("probe");
    EXPECT_EQ(out.stop(), "");
    EXPECT_GT(qid, 0);
    EXPECT_EQ(g_msq_qid2, qid);
    EXPECT_EQ(g_msq_qid, main_queue);
    EXPECT_EQ(queue_of_key(second_key_file, 0), qid);
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], registration(qid, "probe", 1)));
}

TEST_F(SecondQueue, RetriesTakeThePlaceOfTheMainQueue) {
    daemon.once(3, 0, negative(-1));
    StdoutCapture out;
    const int qid = zan_register_msqid("probe");
    EXPECT_EQ(out.stop(), retry_line("zan_register_msqid", 3, 1));
    const auto queues = announced(2);
    EXPECT_EQ(qid, queues[1]);
    EXPECT_EQ(g_msq_qid, qid);
    EXPECT_EQ(g_msq_qid2, queues[0]);
    EXPECT_EQ(queue_of_key(second_key_file, 1), qid);
    EXPECT_TRUE(same_record(daemon.records()[1], registration(qid, "probe", 1)));
    EXPECT_TRUE(queue_exists(main_queue));
    remove_queue(main_queue);
}

TEST_F(SecondQueue, QueuesOfFailedAttemptsStay) {
    for (const int result : {-11, -12, -13, -14})
        daemon.once(3, 0, negative(result));
    StdoutCapture out;
    EXPECT_EQ(zan_register_msqid("probe"), -14);
    EXPECT_EQ(out.stop(), retry_line("zan_register_msqid", 3, 1) +
                              retry_line("zan_register_msqid", 2, 2) +
                              retry_line("zan_register_msqid", 1, 3));
    const auto queues = announced(4);
    for (const int qid : queues)
        EXPECT_TRUE(queue_exists(qid)) << qid;
    EXPECT_EQ(g_msq_qid, queues[3]);
    EXPECT_EQ(g_msq_qid2, queues[0]);
}

TEST_F(SecondQueue, AnIdThatIsTheDaemonsIsRefusedAndTheQueueKept) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    const NextIds ids;
    const int clash = ids.attempt(0);
    write_file(request_queue_file, number(clash));
    daemon.on(3, 0, negative(-1));
    StdoutCapture out;
    // The retries send to the queue that was just kept, where nobody answers: its
    // removal would end their wait.
    Worker module([] { zan_register_msqid("probe"); });
    EXPECT_TRUE(module.wait_until_blocked());
    EXPECT_TRUE(queue_exists(clash));
    EXPECT_EQ(queue_length(clash), 1);
    EXPECT_EQ(out.stop(), "!!!Error: the g_msq_qid2=" + number(clash) +
                              " is same as zan_qid=" + number(clash) +
                              " or zan_req_qid=" + number(daemon.registration_queue()) + "\n" +
                              retry_line("zan_register_msqid", 3, 1));
    remove_queue(clash);
    daemon.die();
    EXPECT_TRUE(module.wait_until_done());
}

TEST_F(SecondQueue, WithoutADaemonItFails) {
    unlink(request_queue_file);
    unlink(registration_queue_file);
    StdoutCapture out;
    EXPECT_EQ(zan_register_msqid("probe"), -2105);
    EXPECT_EQ(out.stop(), missing_files() + retry_line("zan_register_msqid", 3, 1) +
                              missing_files() + retry_line("zan_register_msqid", 2, 2) +
                              missing_files() + retry_line("zan_register_msqid", 1, 3) +
                              missing_files());
    for (int proj_id = 0; proj_id <= 3; ++proj_id)
        EXPECT_GE(queue_of_key(second_key_file, proj_id), 0) << proj_id;
}

// ---- an existing queue ------------------------------------------------------------------

class ExistingQueue : public Registration {
protected:
    std::string qid_line() const { return "zan_register_by_qid:qid=" + number(queue.id()) + "\n"; }
    RawQueue queue;
};

TEST_F(ExistingQueue, IsAnnouncedUnderTheModulesName) {
    std::strcpy(g_module_name, "named");
    StdoutCapture out;
    EXPECT_EQ(zan_register_by_qid(queue.id()), queue.id());
    EXPECT_EQ(out.stop(), qid_line());
    EXPECT_EQ(g_zan_qid, daemon.request_queue());
    EXPECT_EQ(g_reg_msq_qid, daemon.registration_queue());
    EXPECT_EQ(g_msq_qid, -1);
    EXPECT_EQ(g_msq_qid2, -1);
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], registration(queue.id(), "named", getpid())));
}

TEST_F(ExistingQueue, AModuleNameWithoutATerminatorEndsWithItsField) {
    std::memset(g_module_name, 'z', sizeof g_module_name);
    EXPECT_EQ(zan_register_by_qid(queue.id()), queue.id());
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], registration(queue.id(), std::string(32, 'z'), getpid())));
}

TEST_F(ExistingQueue, ARefusalIsReported) {
    daemon.on(3, 0, negative(-77, "no"));
    StdoutCapture out;
    EXPECT_EQ(zan_register_by_qid(queue.id()), -77);
    EXPECT_EQ(out.stop(), qid_line() + "zan_register_by_qid: register fail! ret = -77\n");
    EXPECT_TRUE(queue_exists(queue.id()));
    EXPECT_EQ(daemon.records().size(), 1u);
}

TEST_F(ExistingQueue, AResultOfZeroIsSuccess) {
    daemon.on(3, 0, {{.result = 0}});
    EXPECT_EQ(zan_register_by_qid(queue.id()), queue.id());
}

TEST_F(ExistingQueue, ADaemonThatIsGoneCannotBeSentTo) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_register_by_qid(queue.id()), -2003);
    EXPECT_EQ(out.stop(), qid_line() + send_error(daemon.request_queue()));
}

TEST_F(ExistingQueue, WithoutADaemonItCannotBeSentSilently) {
    unlink(request_queue_file);
    unlink(registration_queue_file);
    StdoutCapture out;
    EXPECT_EQ(zan_register_by_qid(queue.id()), -2003);
    EXPECT_EQ(out.stop(), missing_files() + qid_line());
}

TEST_F(ExistingQueue, NoLockIsTaken) {
    zan_api_lock_init();
    zan_msq_lock_init();
    zan_api_lock();
    zan_msq_lock();
    EXPECT_EQ(zan_register_by_qid(queue.id()), queue.id());
    zan_msq_unlock();
    zan_api_unlock();
    zan_msq_lock_destroy();
    zan_api_lock_destroy();
}

// ---- unregistering ----------------------------------------------------------------------

class Unregistration : public Registration {
protected:
    void SetUp() override {
        qid = zan_register("probe", 7);
        ASSERT_GT(qid, 0);
        daemon.forget_records();
    }
    int qid = -1;
};

TEST_F(Unregistration, RemovesQueueAndKeyFile) {
    StdoutCapture out;
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(queue_exists(qid));
    EXPECT_FALSE(file_exists(key_file));
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same_record(records[0], unregistration(qid)));
}

TEST_F(Unregistration, AnyResultAboveZeroRemovesTheQueue) {
    daemon.on(3, 1, {{.result = 1000}});
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_FALSE(queue_exists(qid));
}

TEST_F(Unregistration, AResultOfZeroLeavesEverythingInPlace) {
    daemon.on(3, 1, {{.result = 0}});
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(file_exists(key_file));
}

TEST_F(Unregistration, ARefusalLeavesEverythingInPlace) {
    daemon.on(3, 1, negative(-6, "busy"));
    StdoutCapture out;
    EXPECT_EQ(zan_unregister("probe", 7), -6);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(file_exists(key_file));
}

TEST_F(Unregistration, ADaemonThatIsGoneCannotBeSentTo) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_unregister("probe", 7), -2003);
    EXPECT_EQ(out.stop(), send_error(daemon.request_queue()));
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(file_exists(key_file));
}

TEST_F(Unregistration, AQueueThatIsGoneCannotBeRemoved) {
    daemon.on(3, 1, {{.held = true}});
    StdoutCapture out;
    int result = 0;
    Worker module([&] { result = zan_unregister("probe", 7); });
    daemon.wait_for_records(1);
    remove_queue(qid);
    daemon.release();
    ASSERT_TRUE(module.wait_until_done());
    EXPECT_EQ(result, -2006);
    EXPECT_EQ(out.stop(), "zan_msg_del ERROR:Invalid argument\n");
    EXPECT_TRUE(file_exists(key_file));
}

TEST_F(Unregistration, BothLocksAreDestroyedFirst) {
    zan_msq_lock_init();
    daemon.on(3, 1, {{.held = true}});
    bool blocked = true;
    Worker module([&] {
        zan_unregister("probe", 7);
        blocked = sigterm_is_blocked();
    });
    daemon.wait_for_records(1);
    // Meanwhile the locks do nothing any more, however often they are taken.
    for (int i = 0; i < 2; ++i) {
        zan_api_lock();
        zan_msq_lock();
    }
    EXPECT_FALSE(sigterm_is_blocked());
    EXPECT_TRUE(api_lock_is_free());
    daemon.release();
    EXPECT_TRUE(module.wait_until_done());
    EXPECT_FALSE(blocked);
}

TEST_F(Unregistration, ALockLeftHeldDoesNotStopIt) {
    zan_unregister_msqid("probe", 7, -1); // leaves the API lock held
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_FALSE(queue_exists(qid));
    EXPECT_GT(zan_register("probe", 7), 0);
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(Unregistration, AQueueLockLeftHeldDoesNotStopIt) {
    zan_msq_lock_init();
    g_zan_qid = -1;
    StdoutCapture out;
    EXPECT_EQ(zan_send("peer", "hello", 5), -1); // leaves the queue lock held
    g_zan_qid = daemon.request_queue();
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    zan_msq_lock_init();
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
    zan_msq_lock_destroy();
}

TEST_F(Unregistration, TheSecondQueueGoesFirst) {
    const int second = zan_register_msqid("probe");
    ASSERT_GT(second, 0);
    daemon.forget_records();
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_EQ(g_msq_qid2, -1);
    EXPECT_FALSE(queue_exists(second));
    EXPECT_FALSE(queue_exists(qid));
    EXPECT_FALSE(file_exists(key_file));
    EXPECT_FALSE(file_exists(second_key_file));
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(same_record(records[0], unregistration(second, "probe", 1)));
    EXPECT_TRUE(same_record(records[1], unregistration(qid)));
}

TEST_F(Unregistration, TheResultIsThatOfTheMainQueue) {
    const int second = zan_register_msqid("probe");
    ASSERT_GT(second, 0);
    daemon.once(3, 1, negative(-5));
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_EQ(g_msq_qid2, -1);
    EXPECT_TRUE(queue_exists(second));
    EXPECT_FALSE(queue_exists(qid));
}

TEST_F(Unregistration, ASecondQueueOfIdZeroIsNone) {
    g_msq_qid2 = 0;
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_EQ(g_msq_qid2, 0);
    EXPECT_EQ(daemon.records().size(), 1u);
}

TEST_F(Unregistration, TheModuleCanRegisterAgain) {
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    const int again = zan_register("probe", 7);
    EXPECT_GT(again, 0);
    zan_api_lock();
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(Unregistration, WithoutAnyOfTheThreeIdsItFails) {
    const std::string line = "zan_unregister_msq: pid=" + number(getpid()) + "\n";
    for (int *const id : {&g_zan_qid, &g_reg_msq_qid, &g_msq_qid}) {
        const int kept = *id;
        *id = -1;
        StdoutCapture out;
        EXPECT_EQ(zan_unregister("probe", 7), -1);
        EXPECT_EQ(out.stop(), line);
        *id = kept;
    }
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_EQ(daemon.records().size(), 0u);
}

// ---- one queue, under the API lock ------------------------------------------------------

TEST_F(Unregistration, OneQueueIsUnregisteredUnderTheApiLock) {
    daemon.on(3, 1, {{.held = true}});
    int result = -1;
    bool blocked = true;
    Worker module([&] {
        result = zan_unregister_msqid("probe", 7, qid);
        blocked = sigterm_is_blocked();
    });
    const auto records = daemon.wait_for_records(1);
    EXPECT_TRUE(same_record(records[0], unregistration(qid)));
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    daemon.release();
    EXPECT_TRUE(probe.wait_until_free());
    ASSERT_TRUE(module.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(blocked);
    EXPECT_FALSE(queue_exists(qid));
    EXPECT_FALSE(file_exists(key_file));
}

TEST_F(Unregistration, EveryOutcomeReleasesTheApiLock) {
    daemon.once(3, 1, {{.result = 0}});
    EXPECT_EQ(zan_unregister_msqid("probe", 7, qid), 0);
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(api_lock_is_free());
    daemon.once(3, 1, negative(-6));
    EXPECT_EQ(zan_unregister_msqid("probe", 7, qid), -6);
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(api_lock_is_free());
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_unregister_msqid("probe", 7, qid), -2003);
    EXPECT_EQ(out.stop(), send_error(daemon.request_queue()));
    EXPECT_TRUE(queue_exists(qid));
    EXPECT_TRUE(api_lock_is_free());
    EXPECT_FALSE(sigterm_is_blocked());
}

TEST_F(Unregistration, TwoReleasesLeaveTheApiLockFree) {
    const int gone = RawQueue().id();
    StdoutCapture out;
    EXPECT_EQ(zan_unregister_msqid("probe", 7, gone), -2006);
    EXPECT_EQ(out.stop(), "zan_msg_del ERROR:Invalid argument\n");
    EXPECT_FALSE(sigterm_is_blocked());
    EXPECT_TRUE(file_exists(key_file));
    zan_api_lock();
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(Unregistration, ANegativeIdLeavesTheApiLockHeld) {
    int *const ids[] = {&g_zan_qid, &g_reg_msq_qid, nullptr};
    for (int *const id : ids) {
        const int kept = id == nullptr ? 0 : *id;
        if (id != nullptr)
            *id = -1;
        StdoutCapture out;
        EXPECT_EQ(zan_unregister_msqid("probe", 7, id == nullptr ? -1 : qid), -1);
        EXPECT_EQ(out.stop(), "");
        EXPECT_TRUE(sigterm_is_blocked());
        LockProbe probe(zan_api_lock, zan_api_unlock);
        EXPECT_FALSE(probe.is_free());
        zan_api_unlock();
        EXPECT_TRUE(probe.wait_until_free());
        if (id != nullptr)
            *id = kept;
    }
    EXPECT_EQ(daemon.records().size(), 0u);
}

} // namespace
} // namespace zan::test
