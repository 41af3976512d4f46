// SPDX-License-Identifier: MIT
#include "decode/record.h"

#include "wire/header.h"

namespace zan::decode {

namespace {

std::string find_error(const wire::Header &header, std::size_t size) {
    if (size < wire::header_size)
        return "record of " + std::to_string(size) + " bytes is shorter than its header";
    if (size > wire::max_record)
        return "record is longer than " + std::to_string(wire::max_record) + " bytes";
    const std::size_t payload = size - wire::header_size;
    if (header.len < 0 || static_cast<std::size_t>(header.len) != payload)
        return "len is " + std::to_string(header.len) + ", but " + std::to_string(payload) +
               " payload bytes arrived";
    if (!wire::is_terminated(header.src))
        return "source name is not terminated";
    if (!wire::is_terminated(header.dst))
        return "destination name is not terminated";
    return {};
}

wire::Header header_of(const Record &record, std::size_t payload) {
    wire::Header header{.type = record.type,
                        .cmd = record.cmd,
                        .pid = record.pid,
                        .time = record.time,
                        .result = record.result,
                        .aux = record.aux,
                        .arg = record.arg,
                        .len = static_cast<std::int32_t>(payload)};
    wire::format_name(header.dst, record.dst);
    wire::format_name(header.src, record.src);
    return header;
}

std::string format(const Record &record, wire::ByteOrder order) {
    const std::string_view payload = std::string_view(record.payload).substr(0, wire::max_payload);
    wire::Header header = header_of(record, payload.size());
    if (order == wire::ByteOrder::network)
        wire::convert_byte_order(header);
    const auto bytes = wire::format_header(header);
    std::string formatted(bytes.data(), bytes.size());
    formatted += payload;
    return formatted;
}

} // namespace

ParsedRecord parse_record(std::string_view bytes) {
    const wire::Header header = wire::parse_header(bytes);
    ParsedRecord parsed;
    parsed.error = find_error(header, bytes.size());
    Record &record = parsed.record;
    record.type = header.type;
    record.cmd = header.cmd;
    record.dst = wire::parse_name(header.dst);
    record.src = wire::parse_name(header.src);
    record.pid = header.pid;
    record.time = header.time;
    record.result = header.result;
    record.aux = header.aux;
    record.arg = header.arg;
    record.len = header.len;
    if (bytes.size() > wire::header_size)
        record.payload = bytes.substr(wire::header_size, wire::max_payload);
    return parsed;
}

std::string format_record(const Record &record) {
    return format(record, wire::ByteOrder::host);
}

std::string format_stream_record(const Record &record) {
    return format(record, wire::ByteOrder::network);
}

} // namespace zan::decode
