// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/sandbox.h"

#include <climits>
#include <random>

namespace zan::test {

namespace {

using Misuse = ZansimTest;

TEST_F(Misuse, OfUnknownCommandsIsAnswered) {
    expect_refused(module().call(class_cfg, 99, ""), class_cfg, 99, -107,
                   "unknown command 99 of class CFG");
    expect_refused(module().call(class_cfg, -1, ""), class_cfg, -1, -107,
                   "unknown command -1 of class CFG");
    expect_refused(module().call(class_registration + 3, 0, ""), 6, 0, -107, "unknown class 6");
    expect_refused(module().call(INT_MAX, 0, ""), INT_MAX, 0, -107, "unknown class 2147483647");
    expect_refused(module().call(class_notify, 7, "x"), class_notify, 7, -107,
                   "NOTIFY value-changed is not served");
}

TEST_F(Misuse, OfACommandThatNobodyAwaitsIsNotAnswered) {
    // An answer would stay on the queue of the module for ever.
    module().send(module().request(8, 0, "firewall_cntl -f x"));
    module().send(module().request(4, 4, "x"));
    module().send(module().request(7, 1, "x"));
    expect_value("/sys/level", "4");
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(Misuse, OfTheLengthIsAnswered) {
    for (const std::int32_t len : {0, 4, 6, 35000, 35001, INT_MAX, -1, INT_MIN}) {
        Fields lying = module().request(class_cfg, cmd_get, "/sys1");
        lying.len = len;
        expect_refused(module().call(make_record(lying)), class_cfg, cmd_get, -106,
                       "malformed record: len is " + std::to_string(len) +
                           ", but 5 payload bytes arrived");
    }
}

TEST_F(Misuse, OfTheSizeIsAnsweredWhenTheRecordSaysByWhom) {
    for (const std::size_t size : {4U, 8U, 50U, 99U}) {
        Fields cut = module().request(class_cfg, cmd_get, "");
        cut.msgsz = size;
        const SizedRecord answer = module().call(make_record(cut));
        expect_refused(answer, class_cfg, size < 8 ? 0 : cmd_get, -106,
                       "malformed record: record of " + std::to_string(size) +
                           " bytes is shorter than its header");
    }
}

TEST_F(Misuse, WithoutAClassIsPassedOver) {
    Fields empty = module().request(0, 0, "");
    empty.msgsz = 0;
    module().send(empty);
    module().send(module().request(0, 0, ""));
    module().send(module().request(-7, 0, ""));
    expect_value("/sys/level", "4");
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(Misuse, OfTheQueueTypeIsPassedOver) {
    for (const long mtype :
         {static_cast<long>(zansim().request_queue()), static_cast<long>(zansim().answer_queue()),
          static_cast<long>(INT_MAX), LONG_MAX}) {
        if (mtype < 1)
            continue; // the kernel refuses it, as it does in a fresh namespace for queue 0
        Fields fields = module().request(class_cfg, cmd_get, "/sys/level");
        fields.mtype = mtype;
        module().send(fields);
    }
    expect_value("/sys/level", "4");
    EXPECT_EQ(queue_length(zansim().request_queue()), 0);
    EXPECT_EQ(queue_length(zansim().answer_queue()), 0);
}

TEST_F(Misuse, OfNamesIsAnswered) {
    Fields fields = module().request(class_cfg, cmd_get, "/sys/level");
    fields.src = std::string(32, 's');
    expect_refused(module().call(make_record(fields)), class_cfg, cmd_get, -106,
                   "malformed record: source name is not terminated");
    fields.src = "x";
    fields.dst = std::string(32, 'd');
    expect_refused(module().call(make_record(fields)), class_cfg, cmd_get, -106,
                   "malformed record: destination name is not terminated");
}

TEST_F(Misuse, OfARecordLongerThanAnyIsAnswered) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    // More than the record of this test holds: by a plain block.
    struct Oversized {
        SizedRecord head;
        char tail[64];
    };
    auto oversized = std::make_unique<Oversized>();
    oversized->head = make_record(module().request(class_cfg, cmd_get, std::string(35000, 'x')));
    oversized->head.msgsz = 35120;
    module().send(oversized->head);
    expect_refused(await_record(module().queue(), class_cfg), class_cfg, cmd_get, -106,
                   "malformed record: record is longer than 35100 bytes");
}

TEST_F(Misuse, ByRandomBytesNeverEndsIt) {
    std::mt19937 random(4711); // the same bytes in every run
    for (int i = 0; i < 2000; ++i) {
        SizedRecord record = make_record(module().request(class_cfg, cmd_get, ""));
        record.msgsz = random() % 300;
        for (std::size_t at = 0; at < record.msgsz; ++at)
            record.record.bytes[at] = static_cast<unsigned char>(random());
        // Half of them come as far as the services.
        if (i % 2 == 0) {
            record.msgsz = std::max<std::size_t>(record.msgsz, 100);
            record.record.set_word(at::type, static_cast<int>(random() % 10));
            record.record.set_word(at::cmd, static_cast<int>(random() % 40));
            record.record.bytes[at::src + 31] = 0;
            record.record.bytes[at::dst + 31] = 0;
            record.record.set_word(at::len, static_cast<int>(record.msgsz - 100));
        }
        module().send(record);
        while (raw_receive(module().queue())) {
        }
    }
    start(tree_file(R"({"a": 1})")); // its end is clean
    expect_value("/a", "1");
}

} // namespace

} // namespace zan::test
