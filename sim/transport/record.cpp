// SPDX-License-Identifier: MIT
#include "transport/record.h"

#include "base/text.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace zan::sim {

namespace {

static_assert(std::is_trivially_copyable_v<zan_body>);
static_assert(offsetof(zan_body, data) == ZAN_HEADER_SIZE);
static_assert(sizeof(zan_body) == ZAN_BODY_SIZE);

// Only the header: clearing a whole zan_body for each record is slow.
struct Header {
    std::int32_t type, cmd;
    char dst[ZAN_NAME_SIZE], src[ZAN_NAME_SIZE];
    std::int32_t pid, time, spare, result, aux, arg, len;
};
static_assert(sizeof(Header) == ZAN_HEADER_SIZE);

std::string_view name_in(const char (&field)[ZAN_NAME_SIZE]) {
    return until_nul({field, ZAN_NAME_SIZE});
}

void put_name(char (&field)[ZAN_NAME_SIZE], std::string_view name) {
    name.copy(field, ZAN_NAME_SIZE - 1);
}

std::string error_in(const Header &header, std::size_t size) {
    if (size < ZAN_HEADER_SIZE)
        return "record of " + std::to_string(size) + " bytes is shorter than its header";
    if (size > ZAN_BODY_SIZE)
        return "record is longer than " + std::to_string(ZAN_BODY_SIZE) + " bytes";
    const std::size_t payload = size - ZAN_HEADER_SIZE;
    if (header.len < 0 || static_cast<std::size_t>(header.len) != payload)
        return "len is " + std::to_string(header.len) + ", but " + std::to_string(payload) +
               " payload bytes arrived";
    if (name_in(header.src).size() == ZAN_NAME_SIZE)
        return "source name is not terminated";
    if (name_in(header.dst).size() == ZAN_NAME_SIZE)
        return "destination name is not terminated";
    return {};
}

} // namespace

Received decode(std::string_view body) {
    Header header{};
    std::memcpy(&header, body.data(), std::min(body.size(), sizeof header));
    Received received;
    received.error = error_in(header, body.size());
    Record &record = received.record;
    record.type = header.type;
    record.cmd = header.cmd;
    record.dst = name_in(header.dst);
    record.src = name_in(header.src);
    record.pid = header.pid;
    record.time = header.time;
    record.result = header.result;
    record.aux = header.aux;
    record.arg = header.arg;
    record.len = header.len;
    if (body.size() > sizeof header)
        record.payload = body.substr(sizeof header, ZAN_DATA_SIZE);
    return received;
}

std::string encode(const Record &record) {
    const std::string_view payload = std::string_view(record.payload).substr(0, ZAN_DATA_SIZE);
    Header header{};
    header.type = record.type;
    header.cmd = record.cmd;
    put_name(header.dst, record.dst);
    put_name(header.src, record.src);
    header.pid = record.pid;
    header.time = record.time;
    header.result = record.result;
    header.aux = record.aux;
    header.arg = record.arg;
    header.len = static_cast<std::int32_t>(payload.size());
    std::string body(reinterpret_cast<const char *>(&header), sizeof header);
    body += payload;
    return body;
}

} // namespace zan::sim
