// SPDX-License-Identifier: MIT
#pragma once

#include "decode/record.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zan::decode {

// Cuts the bytes of a stream into records.  Each record may be in network order or, as
// modules write some of theirs, in host order.
class StreamReader {
public:
    void add(std::string_view bytes);

    // The next complete record; nothing until its last byte has been added.
    std::optional<ParsedRecord> next();

    // Whether the end of a record was not to be found, so that nothing after it can be
    // parsed.  That record was returned with its error.
    bool is_lost() const { return lost_; }

    // Bytes of a record that is not complete.
    std::size_t unfinished() const { return bytes_.size() - used_; }

private:
    std::string bytes_;
    std::size_t used_ = 0;
    bool lost_ = false;
};

} // namespace zan::decode
