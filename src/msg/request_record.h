// SPDX-License-Identifier: MIT
// Storage for one request in flight: the request is built in it and the answer received
// into it.
#pragma once

#include "msg/record.h"

#include <atomic>

namespace zan {

// Claims the static record for as long as the object lives.  That costs no stack, and
// only the pages that requests and answers reach.
class StaticRecord {
public:
    StaticRecord() : claimed_(!taken_.exchange(true, std::memory_order_acquire)) {}
    ~StaticRecord() {
        if (claimed_)
            taken_.store(false, std::memory_order_release);
    }
    StaticRecord(const StaticRecord &) = delete;
    StaticRecord &operator=(const StaticRecord &) = delete;

    // Null when another request has it.
    ReceiveRecord *get() const { return claimed_ ? &record_ : nullptr; }

private:
    static std::atomic<bool> taken_;
    static ReceiveRecord record_;

    bool claimed_;
};

// 35 KB of stack, apart so that only this call pays for them.
template<typename Use> [[gnu::noinline]] auto with_stack_record(Use &use) {
    ReceiveRecord record;
    return use(record);
}

// Calls `use` with a record that no other request uses: the static one, or one on the
// stack if another request is in flight because the API lock is not in force.  The
// record's contents are lost when this returns.
template<typename Use> auto with_request_record(Use use) {
    const StaticRecord record;
    return record.get() != nullptr ? use(*record.get()) : with_stack_record(use);
}

} // namespace zan
