// SPDX-License-Identifier: MIT
#pragma once

#include <zan.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zan::sim {

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
    std::int32_t len = 0; // as the sender wrote it; encode() uses the size of the payload
    std::string payload;
};

// A record that arrived, and why it is malformed; empty if it is not.
struct Received {
    Record record;
    std::string error;
};

// Never reads past the given bytes, whatever `len` says.  Fields that did not arrive are
// 0 or empty.
Received decode(std::string_view body);

// The record's bytes in host order: 100 and the payload.  Names are cut to 31
// characters, the payload to 35000 bytes.
std::string encode(const Record &record);

} // namespace zan::sim
