// SPDX-License-Identifier: MIT
#include "wire/header.h"

#include "support/stream_peer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

namespace zan::wire {
namespace {

const test::Fields all_fields{.type = 4,
                              .cmd = 0x01020304,
                              .dst = "OTHER",
                              .src = "TESTER",
                              .pid = 0x05060708,
                              .time = 0x090a0b0c,
                              .spare = 0x0d0e0f10,
                              .result = -5,
                              .aux = 0x11121314,
                              .arg = 0x15161718,
                              .payload = "hello"};

Header full_header() {
    Header header{.type = 4,
                  .cmd = 0x01020304,
                  .pid = 0x05060708,
                  .time = 0x090a0b0c,
                  .spare = 0x0d0e0f10,
                  .result = -5,
                  .aux = 0x11121314,
                  .arg = 0x15161718,
                  .len = 5};
    format_name(header.dst, "OTHER");
    format_name(header.src, "TESTER");
    return header;
}

std::string bytes_of(const Header &header) {
    const auto bytes = format_header(header);
    return {bytes.data(), bytes.size()};
}

TEST(Header, IsFormattedByteForByte) {
    EXPECT_TRUE(test::same_bytes(bytes_of(full_header()) + "hello",
                                 stream_bytes(all_fields, test::ByteOrder::host)));
}

TEST(Header, HasSevenWordsInNetworkOrder) {
    Header header = full_header();
    convert_byte_order(header);
    EXPECT_TRUE(test::same_bytes(bytes_of(header) + "hello",
                                 stream_bytes(all_fields, test::ByteOrder::network)));
    convert_byte_order(header);
    EXPECT_EQ(bytes_of(header), bytes_of(full_header()));
}

TEST(Header, IsConvertedInAWholeRecordToo) {
    static zan_body body;
    const std::string host = stream_bytes(all_fields, test::ByteOrder::host);
    std::memcpy(&body, host.data(), host.size());
    convert_byte_order(body);
    EXPECT_TRUE(test::same_bytes(std::string(reinterpret_cast<const char *>(&body), host.size()),
                                 stream_bytes(all_fields, test::ByteOrder::network)));
}

TEST(Header, IsParsedFieldByField) {
    const Header header = parse_header(stream_bytes(all_fields, test::ByteOrder::host));
    EXPECT_EQ(header.type, all_fields.type);
    EXPECT_EQ(header.cmd, all_fields.cmd);
    EXPECT_EQ(parse_name(header.dst), all_fields.dst);
    EXPECT_EQ(parse_name(header.src), all_fields.src);
    EXPECT_EQ(header.pid, all_fields.pid);
    EXPECT_EQ(header.time, all_fields.time);
    EXPECT_EQ(header.spare, all_fields.spare);
    EXPECT_EQ(header.result, all_fields.result);
    EXPECT_EQ(header.aux, all_fields.aux);
    EXPECT_EQ(header.arg, all_fields.arg);
    EXPECT_EQ(header.len, 5);
}

TEST(Header, ReadsMissingBytesAsZeros) {
    const std::string whole = stream_bytes(all_fields, test::ByteOrder::host);
    for (std::size_t size = 0; size <= header_size; ++size) {
        std::string expected = whole.substr(0, size);
        expected.resize(header_size);
        EXPECT_EQ(bytes_of(parse_header(std::string_view(whole).substr(0, size))), expected);
    }
}

TEST(Name, IsCutAndFilledWithZeros) {
    char field[32];
    std::fill(std::begin(field), std::end(field), 'x');
    format_name(field, "abc");
    EXPECT_EQ(std::string_view(field, 32), "abc" + std::string(29, '\0'));
    format_name(field, std::string(31, 'n'));
    EXPECT_EQ(std::string_view(field, 32), std::string(31, 'n') + '\0');
    format_name(field, std::string(32, 'm'));
    EXPECT_EQ(std::string_view(field, 32), std::string(31, 'm') + '\0');
    EXPECT_TRUE(is_terminated(field));
}

TEST(Name, WithoutTerminatorIsTheWholeField) {
    char field[32];
    std::fill(std::begin(field), std::end(field), 'x');
    EXPECT_EQ(parse_name(field), std::string(32, 'x'));
    EXPECT_FALSE(is_terminated(field));
}

TEST(ByteOrderOfAHeader, FollowsFromItsClass) {
    EXPECT_EQ(find_byte_order(1), ByteOrder::host);
    EXPECT_EQ(find_byte_order(255), ByteOrder::host);
    EXPECT_EQ(find_byte_order(convert_word(1)), ByteOrder::network);
    EXPECT_EQ(find_byte_order(convert_word(255)), ByteOrder::network);
    for (const std::int32_t type : {0, -1, 256, 0x00010100})
        EXPECT_EQ(find_byte_order(type), std::nullopt) << type;
}

// All of it is available at compile time.
constexpr Header compile_time_header = [] {
    Header header{.type = 1, .len = 2};
    format_name(header.src, "module");
    convert_byte_order(header);
    const auto bytes = format_header(header);
    return parse_header({bytes.data(), bytes.size()});
}();
static_assert(convert_word(compile_time_header.len) == 2);
static_assert(parse_name(compile_time_header.src) == "module");

} // namespace
} // namespace zan::wire
