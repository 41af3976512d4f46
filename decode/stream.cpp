// SPDX-License-Identifier: MIT
#include "decode/stream.h"

#include "wire/header.h"

namespace zan::decode {

namespace {

std::string find_error(std::optional<wire::ByteOrder> order, std::int32_t len) {
    if (!order)
        return "its class tells no byte order";
    if (len < 0 || static_cast<std::size_t>(len) > wire::max_payload)
        return "len is " + std::to_string(len) + ", not 0 to " + std::to_string(wire::max_payload);
    return {};
}

} // namespace

void StreamReader::add(std::string_view bytes) {
    bytes_.erase(0, used_);
    used_ = 0;
    bytes_ += bytes;
}

std::optional<ParsedRecord> StreamReader::next() {
    const std::string_view rest = std::string_view(bytes_).substr(used_);
    if (lost_ || rest.size() < wire::header_size)
        return std::nullopt;
    wire::Header header = wire::parse_header(rest);
    const auto order = wire::find_byte_order(header.type);
    // Without an order it is taken for network order.
    if (order != wire::ByteOrder::host)
        wire::convert_byte_order(header);
    const auto bytes = wire::format_header(header);
    std::string record(bytes.data(), bytes.size());
    if (std::string error = find_error(order, header.len); !error.empty()) {
        lost_ = true;
        ParsedRecord parsed = parse_record(record);
        parsed.error = std::move(error);
        return parsed;
    }
    const auto size = wire::header_size + static_cast<std::size_t>(header.len);
    if (rest.size() < size)
        return std::nullopt;
    record += rest.substr(wire::header_size, size - wire::header_size);
    used_ += size;
    return parse_record(record);
}

} // namespace zan::decode
