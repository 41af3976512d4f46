// SPDX-License-Identifier: MIT
#pragma once

#include "transport/record.h"

#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// Records on a stream: without queue type, one after the other.  Seven words of the
// header are in network order or, in some records of modules, in host order.

// Splits the bytes of a peer into records.
class StreamReader {
public:
    void add(std::string_view bytes);

    // The next complete record, converted to host order.
    std::optional<Received> next();

    // Whether the end of a record was unclear, so that nothing after it can be decoded.
    // That record was returned with its error.
    bool lost() const { return lost_; }

    // Bytes of an incomplete record.
    std::size_t unfinished() const { return bytes_.size() - used_; }

private:
    std::string bytes_;
    std::size_t used_ = 0;
    bool lost_ = false;
};

// In network order, as modules expect it.
std::string encode_for_stream(const Record &record);

} // namespace zan::sim
