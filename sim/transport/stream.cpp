// SPDX-License-Identifier: MIT
#include "transport/stream.h"

#include <arpa/inet.h>

#include <cstring>

namespace zan::sim {

namespace {

constexpr std::size_t at_len = offsetof(zan_body, len);

// `time` and `spare` keep the sender's order.
constexpr std::size_t converted_words[] = {
    offsetof(zan_body, type),
    offsetof(zan_body, cmd),
    offsetof(zan_body, pid),
    offsetof(zan_body, result),
    offsetof(zan_body, aux),
    offsetof(zan_body, arg),
    at_len,
};

std::uint32_t word(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

void convert(std::string &bytes) {
    for (const std::size_t offset : converted_words) {
        const std::uint32_t value = htonl(word(bytes, offset));
        std::memcpy(bytes.data() + offset, &value, sizeof value);
    }
}

// A class is a small number in the right byte order and a large one in the other.
bool is_class(std::uint32_t type) {
    return type >= 1 && type < 256;
}

// False if the byte order is unclear; then network order is assumed.
bool convert_to_host(std::string &header) {
    const std::uint32_t type = word(header, offsetof(zan_body, type));
    if (is_class(type))
        return true;
    convert(header);
    return is_class(ntohl(type));
}

std::string error_in(bool ordered, std::int32_t len) {
    if (!ordered)
        return "its class tells no byte order";
    if (len < 0 || len > ZAN_DATA_SIZE)
        return "len is " + std::to_string(len) + ", not 0 to " + std::to_string(ZAN_DATA_SIZE);
    return {};
}

} // namespace

void StreamReader::add(std::string_view bytes) {
    bytes_.erase(0, used_);
    used_ = 0;
    bytes_ += bytes;
}

std::optional<Received> StreamReader::next() {
    const std::string_view rest = std::string_view(bytes_).substr(used_);
    if (lost_ || rest.size() < ZAN_HEADER_SIZE)
        return std::nullopt;
    std::string record(rest.substr(0, ZAN_HEADER_SIZE));
    const bool ordered = convert_to_host(record);
    const auto len = static_cast<std::int32_t>(word(record, at_len));
    if (std::string error = error_in(ordered, len); !error.empty()) {
        lost_ = true;
        Received received = decode(record);
        received.error = std::move(error);
        return received;
    }
    const auto size = ZAN_HEADER_SIZE + static_cast<std::size_t>(len);
    if (rest.size() < size)
        return std::nullopt;
    record += rest.substr(ZAN_HEADER_SIZE, size - ZAN_HEADER_SIZE);
    used_ += size;
    return decode(record);
}

std::string encode_for_stream(const Record &record) {
    std::string bytes = encode(record);
    convert(bytes);
    return bytes;
}

} // namespace zan::sim
