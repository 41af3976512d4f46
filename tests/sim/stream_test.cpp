// SPDX-License-Identifier: MIT
#include "transport/stream.h"

#include "support/stream_peer.h"

#include <gmock/gmock.h>

#include <climits>
#include <random>

namespace zan::sim {

namespace {

using test::ByteOrder;
using test::Fields;
using test::stream_bytes;

const Fields full = {.type = 4,
                     .cmd = 0x01020304,
                     .dst = "OTHER",
                     .src = "TESTER",
                     .pid = 0x05060708,
                     .time = 0x090a0b0c,
                     .result = -5,
                     .aux = 0x11121314,
                     .arg = 0x15161718,
                     .payload = "hello"};

void expect_full(const std::optional<Received> &received) {
    ASSERT_TRUE(received);
    const Record &record = received->record;
    EXPECT_EQ(received->error, "");
    EXPECT_EQ(record.type, full.type);
    EXPECT_EQ(record.cmd, full.cmd);
    EXPECT_EQ(record.dst, full.dst);
    EXPECT_EQ(record.src, full.src);
    EXPECT_EQ(record.pid, full.pid);
    EXPECT_EQ(record.time, full.time);
    EXPECT_EQ(record.result, full.result);
    EXPECT_EQ(record.aux, full.aux);
    EXPECT_EQ(record.arg, full.arg);
    EXPECT_EQ(record.payload, full.payload);
}

TEST(Stream, ReadsARecordInEitherOrder) {
    for (const ByteOrder order : {ByteOrder::network, ByteOrder::host}) {
        StreamReader reader;
        reader.add(stream_bytes(full, order));
        expect_full(reader.next());
        EXPECT_FALSE(reader.next());
        EXPECT_FALSE(reader.lost());
        EXPECT_EQ(reader.unfinished(), 0U);
    }
}

TEST(Stream, ReadsRecordsInPiecesAndInHeaps) {
    std::string bytes;
    for (int i = 0; i < 7; ++i)
        bytes += stream_bytes(full, i % 2 == 0 ? ByteOrder::network : ByteOrder::host);
    for (const std::size_t piece : {1U, 99U, 100U, 101U, 105U, 211U, 735U}) {
        StreamReader reader;
        int records = 0;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            reader.add(std::string_view(bytes).substr(at, piece));
            while (const auto received = reader.next()) {
                expect_full(received);
                ++records;
            }
        }
        EXPECT_EQ(records, 7) << "in pieces of " << piece;
        EXPECT_EQ(reader.unfinished(), 0U);
    }
}

TEST(Stream, TakesTheLongestRecordAndTheShortest) {
    for (const std::size_t size : {0U, 35000U}) {
        StreamReader reader;
        const std::string bytes =
            stream_bytes({.type = 1, .payload = std::string(size, 'x')}, ByteOrder::network);
        reader.add(std::string_view(bytes).substr(0, bytes.size() - 1));
        EXPECT_FALSE(reader.next());
        EXPECT_EQ(reader.unfinished(), bytes.size() - 1);
        reader.add(bytes.substr(bytes.size() - 1));
        EXPECT_EQ(reader.next()->record.payload.size(), size);
    }
}

TEST(Stream, IsLostBehindALengthThatNoRecordHas) {
    for (const std::int32_t len : {-1, -100, INT_MIN, 35001, 2097052, INT_MAX}) {
        for (const ByteOrder order : {ByteOrder::network, ByteOrder::host}) {
            StreamReader reader;
            reader.add(stream_bytes({.type = 4, .cmd = 1, .len = len}, order));
            const auto received = reader.next();
            ASSERT_TRUE(received);
            EXPECT_EQ(received->error, "len is " + std::to_string(len) + ", not 0 to 35000");
            EXPECT_EQ(received->record.cmd, 1);
            EXPECT_TRUE(reader.lost());
            reader.add(stream_bytes(full, order));
            EXPECT_FALSE(reader.next());
        }
    }
}

TEST(Stream, IsLostBehindAClassThatTellsNoOrder) {
    for (const std::int32_t type : {0, -1, 256, 0x01000001, 0x7f000000 + 256}) {
        StreamReader reader;
        reader.add(stream_bytes({.type = type}, ByteOrder::host));
        EXPECT_EQ(reader.next()->error, "its class tells no byte order");
        EXPECT_TRUE(reader.lost());
    }
}

TEST(Stream, HoldsNoMoreThanOneRecordOfRandomBytes) {
    std::mt19937 random(4711); // the same bytes in every run
    for (int round = 0; round < 300; ++round) {
        StreamReader reader;
        for (int piece = 0; piece < 20; ++piece) {
            std::string bytes(random() % 4000, '\0');
            for (char &byte : bytes)
                byte = static_cast<char>(random() % 4 == 0 ? random() : 0);
            // Half of them begin as a record does.
            if (round % 2 == 0 && !bytes.empty())
                bytes[0] = static_cast<char>(random() % 10);
            reader.add(bytes);
            while (reader.next()) {
            }
            if (reader.lost())
                break;
            EXPECT_LT(reader.unfinished(), 35100U);
        }
    }
}

TEST(Stream, WritesSevenWordsInNetworkOrderAndTimeAsItIs) {
    Record record;
    record.type = full.type;
    record.cmd = full.cmd;
    record.dst = full.dst;
    record.src = full.src;
    record.pid = full.pid;
    record.time = full.time;
    record.result = full.result;
    record.aux = full.aux;
    record.arg = full.arg;
    record.payload = full.payload;
    EXPECT_TRUE(
        test::same_bytes(encode_for_stream(record), stream_bytes(full, ByteOrder::network)));
}

} // namespace

} // namespace zan::sim
