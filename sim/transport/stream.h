// SPDX-License-Identifier: MIT
#pragma once

#include "transport/record.h"

#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// Records as they travel on a stream: without queue type, one behind the other.
// Seven words of the header are in network order, or, in some of the records that
// modules send, in the order of the machine.

// Cuts the bytes of a peer into records.
class StreamReader {
public:
    void add(std::string_view bytes);

    // The next record that has come whole, in whichever order it was.
    std::optional<Received> next();

    // Whether the end of a record could not be told, so that nothing behind it can
    // be understood.  That record was returned with its defect.
    bool lost() const { return lost_; }

    // Bytes of a record that is not complete.
    std::size_t unfinished() const { return bytes_.size() - used_; }

private:
    std::string bytes_;
    std::size_t used_ = 0;
    bool lost_ = false;
};

// What a module expects: network order.
std::string encode_for_stream(const Record &record);

} // namespace zan::sim
