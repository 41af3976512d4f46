// SPDX-License-Identifier: MIT
#include "transport/record.h"

#include "support/raw.h"

#include <gtest/gtest.h>

namespace {

using zan::sim::decode;
using zan::sim::encode;
using zan::sim::Record;
using zan::test::Fields;
using zan::test::make_record;
using zan::test::SizedRecord;
namespace at = zan::test::at;

std::string bytes_of(const SizedRecord &record) {
    return {reinterpret_cast<const char *>(record.record.bytes), record.msgsz};
}

const Fields all_fields{.type = 1,
                        .cmd = 2,
                        .dst = "ZAN_CFG",
                        .src = "module",
                        .pid = 3,
                        .time = 4,
                        .result = -5,
                        .aux = 6,
                        .arg = 7,
                        .payload = "payload"};

TEST(Decode, TakesEveryField) {
    const auto received = decode(bytes_of(make_record(all_fields)));
    EXPECT_EQ(received.error, "");
    EXPECT_EQ(received.record.type, 1);
    EXPECT_EQ(received.record.cmd, 2);
    EXPECT_EQ(received.record.dst, "ZAN_CFG");
    EXPECT_EQ(received.record.src, "module");
    EXPECT_EQ(received.record.pid, 3);
    EXPECT_EQ(received.record.time, 4);
    EXPECT_EQ(received.record.result, -5);
    EXPECT_EQ(received.record.aux, 6);
    EXPECT_EQ(received.record.arg, 7);
    EXPECT_EQ(received.record.payload, "payload");
}

TEST(Encode, WritesEveryField) {
    const Record record = decode(bytes_of(make_record(all_fields))).record;
    EXPECT_EQ(encode(record), bytes_of(make_record(all_fields)));
}

TEST(Encode, CutsNamesAndPayloadToTheirRoom) {
    Record record;
    record.dst = std::string(40, 'd');
    record.payload = std::string(35001, 'p');
    const std::string body = encode(record);
    EXPECT_EQ(body.size(), 35100U);
    EXPECT_EQ(body.substr(at::dst, 33), std::string(31, 'd') + std::string(2, '\0'));
}

TEST(Decode, TellsALyingLength) {
    const auto error = [](std::int32_t len) {
        Fields fields = all_fields;
        fields.len = len;
        return decode(bytes_of(make_record(fields))).error;
    };
    EXPECT_EQ(error(7), "");
    EXPECT_EQ(error(6), "len is 6, but 7 payload bytes arrived");
    EXPECT_EQ(error(35000), "len is 35000, but 7 payload bytes arrived");
    EXPECT_EQ(error(-1), "len is -1, but 7 payload bytes arrived");
    EXPECT_EQ(error(INT32_MIN), "len is -2147483648, but 7 payload bytes arrived");
}

TEST(Decode, TakesEachCutOfARecordForWhatItIs) {
    const std::string whole = bytes_of(make_record(all_fields));
    for (std::size_t size = 0; size < 100; ++size)
        EXPECT_EQ(decode(std::string_view(whole).substr(0, size)).error,
                  "record of " + std::to_string(size) + " bytes is shorter than its header");
    EXPECT_EQ(decode(std::string_view(whole).substr(0, 6)).record.type, 1);
    EXPECT_EQ(decode(std::string_view(whole).substr(0, 3)).record.cmd, 0);
}

TEST(Decode, TellsARecordThatIsTooLong) {
    EXPECT_EQ(decode(std::string(35101, '\0')).error, "record is longer than 35100 bytes");
    Fields fields;
    fields.payload = std::string(35000, 'x');
    EXPECT_EQ(decode(bytes_of(make_record(fields))).error, "");
}

TEST(Decode, TellsNamesWithoutEnd) {
    Fields fields;
    fields.src = std::string(32, 's');
    const auto source = decode(bytes_of(make_record(fields)));
    EXPECT_EQ(source.error, "source name is not terminated");
    EXPECT_EQ(source.record.src, std::string(32, 's'));
    fields.src = std::string(31, 's');
    fields.dst = std::string(32, 'd');
    EXPECT_EQ(decode(bytes_of(make_record(fields))).error, "destination name is not terminated");
}

} // namespace
