// SPDX-License-Identifier: MIT
// The record: the functions that build and read one.  wire/header.h has its layout.
#pragma once

#include "wire/header.h"
#include "zan.h"

#include <cstddef>
#include <string_view>

namespace zan {

static_assert(sizeof(void *) != 4 ||
              (offsetof(zan_resp, data) == 4 && offsetof(zan_resp, len) == 35004 &&
               sizeof(zan_resp) == 35008));

// Storage to receive a record into.  A payload that fills the area leaves no room for a
// terminator, so one more byte follows it.
struct ReceiveRecord {
    zan_msg msg;
    char text_end;

    void end_text(int len);
};

// Zeroes the header and sets the fields that every record has.  The payload area stays
// as it is: only the bytes that are sent must be set.
void begin_record(zan_msg &msg, int mtype, int type, int cmd);
void begin_body(zan_body &body, int type, int cmd);

// Copies a name into dst or src.  The copy is limited by the default bound, not by the
// field: a name of 32 characters or more runs over into the following fields, inside the
// record.  Set those fields afterwards.
void set_destination(zan_body &body, const char *name);
void set_source(zan_body &body, const char *name);

// Set src, and no more than src, to g_module_name or to a name of at most the
// field's size.
void set_source_to_self(zan_body &body);
void set_source_within_field(zan_body &body, std::string_view name);

// Copies a payload and sets len, which may count more than the payload: the rest reads
// as zeros.  A payload longer than the area is cut; the send refuses such a record.
void set_payload(zan_body &body, const char *payload, std::size_t size, int len);

// Zeroes the bytes after a record of `received` bytes up to `end`; both are counted from
// `type` on.
void zero_after(zan_body &body, int received, int end);

// Converts the seven words that are in network order on sockets, in either direction;
// `time` and `spare` are always in the sender's order.
void convert_byte_order(zan_body &body);

} // namespace zan
