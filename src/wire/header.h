// SPDX-License-Identifier: MIT
// The record: 100 bytes of header and up to 35000 bytes of payload.
//
// On queues all words are in host order, after a queue type that is not part of the
// record.  On streams seven words travel in network order; `time` and `spare` always
// travel in the sender's own.
#pragma once

#include "wire/scan.h"
#include "wire/word.h"
#include "zan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

namespace zan::wire {

static_assert(offsetof(zan_body, type) == 0);
static_assert(offsetof(zan_body, cmd) == 4);
static_assert(offsetof(zan_body, dst) == 8);
static_assert(offsetof(zan_body, src) == 40);
static_assert(offsetof(zan_body, pid) == 72);
static_assert(offsetof(zan_body, time) == 76);
static_assert(offsetof(zan_body, spare) == 80);
static_assert(offsetof(zan_body, result) == 84);
static_assert(offsetof(zan_body, aux) == 88);
static_assert(offsetof(zan_body, arg) == 92);
static_assert(offsetof(zan_body, len) == 96);
static_assert(offsetof(zan_body, data) == ZAN_HEADER_SIZE);
static_assert(sizeof(zan_body) == ZAN_BODY_SIZE);
static_assert(offsetof(zan_msg, body) == sizeof(long));
static_assert(sizeof(long) != 4 || sizeof(zan_msg) == 35104);
static_assert(std::is_trivially_copyable_v<zan_msg> && std::is_standard_layout_v<zan_msg>);

inline constexpr std::size_t header_size = ZAN_HEADER_SIZE;
inline constexpr std::size_t max_payload = ZAN_DATA_SIZE;
inline constexpr std::size_t max_record = ZAN_BODY_SIZE;
// Characters of a name; its field has room for a terminator.
inline constexpr std::size_t max_name = ZAN_NAME_SIZE - 1;

// zan_body without its payload area, for those that need no 35 KB beside it.
struct Header {
    std::int32_t type = 0;
    std::int32_t cmd = 0;
    char dst[ZAN_NAME_SIZE] = {};
    char src[ZAN_NAME_SIZE] = {};
    std::int32_t pid = 0;
    std::int32_t time = 0;
    std::int32_t spare = 0;
    std::int32_t result = 0;
    std::int32_t aux = 0;
    std::int32_t arg = 0;
    std::int32_t len = 0;
};
static_assert(sizeof(Header) == header_size);
static_assert(offsetof(Header, src) == offsetof(zan_body, src));
static_assert(offsetof(Header, pid) == offsetof(zan_body, pid));
static_assert(offsetof(Header, result) == offsetof(zan_body, result));
static_assert(offsetof(Header, len) == offsetof(zan_body, len));
static_assert(std::is_trivially_copyable_v<Header> && std::is_standard_layout_v<Header>);

// Missing bytes read as zeros.
constexpr Header parse_header(std::string_view bytes) {
    std::array<char, header_size> header{};
    std::copy_n(bytes.data(), std::min(bytes.size(), header_size), header.begin());
    return std::bit_cast<Header>(header);
}

constexpr std::array<char, header_size> format_header(const Header &header) {
    return std::bit_cast<std::array<char, header_size>>(header);
}

// ---- names -----------------------------------------------------------------

// The name in a field; all of the field if it has no terminator.
constexpr std::string_view parse_name(const char (&field)[ZAN_NAME_SIZE]) {
    return until_nul({field, ZAN_NAME_SIZE});
}

constexpr bool is_terminated(const char (&field)[ZAN_NAME_SIZE]) {
    return parse_name(field).size() < ZAN_NAME_SIZE;
}

// Cuts the name to 31 characters and fills the field with zeros.
constexpr void format_name(char (&field)[ZAN_NAME_SIZE], std::string_view name) {
    const std::size_t length = std::min(name.size(), max_name);
    std::fill(std::copy_n(name.data(), length, field), field + ZAN_NAME_SIZE, '\0');
}

// ---- byte order ------------------------------------------------------------

enum class ByteOrder { host, network };

// The order of a header, by its class as it stands there: a small number in one order
// and a large one in the other.  Modules send some records in host order.  Nothing if
// it can be neither.
constexpr std::optional<ByteOrder> find_byte_order(std::int32_t type) {
    const auto is_class = [](std::int32_t value) { return value >= 1 && value < 256; };
    if (is_class(type))
        return ByteOrder::host;
    if (is_class(convert_word(type)))
        return ByteOrder::network;
    return std::nullopt;
}

// Converts the seven words between host and network order, in either direction.
// `header` is a zan_body or a Header.
template<typename T> constexpr void convert_byte_order(T &header) {
    for (std::int32_t *word : {&header.type, &header.cmd, &header.pid, &header.result, &header.aux,
                               &header.arg, &header.len})
        *word = convert_word(*word);
}

} // namespace zan::wire
