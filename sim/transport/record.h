// SPDX-License-Identifier: MIT
#pragma once

#include <zan.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zan::sim {

// A record as zansim works with it: independent of how it travels.
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
    std::int32_t len = 0; // as the sender wrote it; encode() uses the payload's size
    std::string payload;
};

// What arrived, and what is wrong with it (empty when nothing is).
struct Received {
    Record record;
    std::string defect;
};

// Never reads past the bytes given, whatever the record says of its length.
// Fields that did not arrive are 0 or empty.
Received decode(std::string_view body);

// The record's bytes in host order: 100 and the payload.  Names are cut to 31
// characters, the payload to 35000 bytes.
std::string encode(const Record &record);

} // namespace zan::sim
