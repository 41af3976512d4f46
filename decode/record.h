// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zan::decode {

// A record, independent of its transport.
struct Record {
    std::int32_t type = 0;
    std::int32_t cmd = 0;
    std::string dst;
    std::string src;
    std::int32_t pid = 0;
    std::int32_t time = 0;
    std::int32_t result = 0;
    std::int32_t aux = 0;
    std::int32_t arg = 0;
    std::int32_t len = 0; // as the sender wrote it; ignored when a record is formatted
    std::string payload;

    bool operator==(const Record &) const = default;
};

// What arrived, and what is wrong with it.
struct ParsedRecord {
    Record record;
    std::string error; // empty for a well-formed record

    bool is_valid() const { return error.empty(); }
};

// Parses the bytes of a record in host order, as queues carry them, without the queue
// type.  Takes any bytes of any size and never reads outside them, whatever `len` says.
// Missing fields are 0 or empty; the payload is cut to 35000 bytes.
ParsedRecord parse_record(std::string_view bytes);

// The bytes of a record in host order.  Names are cut to 31 characters, the payload to
// 35000 bytes; `len` counts the payload, `spare` is 0.
std::string format_record(const Record &record);

// The same in network order, as the daemon writes it to a stream.
std::string format_stream_record(const Record &record);

} // namespace zan::decode
