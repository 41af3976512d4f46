// SPDX-License-Identifier: MIT
#include "msg/record.h"

#include "msg/identity.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace zan {
namespace {

char *bytes_of(zan_body &body) {
    return reinterpret_cast<char *>(&body);
}

} // namespace

void ReceiveRecord::end_text(int len) {
    // Counted from the whole record: the terminator may follow `data`.
    char *data = reinterpret_cast<char *>(this) + offsetof(ReceiveRecord, msg) +
                 offsetof(zan_msg, body) + offsetof(zan_body, data);
    data[len] = '\0';
}

void begin_record(zan_msg &msg, int mtype, int type, int cmd) {
    msg.mtype = mtype;
    begin_body(msg.body, type, cmd);
}

void begin_body(zan_body &body, int type, int cmd) {
    std::memset(&body, 0, ZAN_HEADER_SIZE);
    body.type = type;
    body.cmd = cmd;
}

void set_destination(zan_body &body, const char *name) {
    zan_strcpy(bytes_of(body) + offsetof(zan_body, dst), name, 0);
}

void set_source(zan_body &body, const char *name) {
    zan_strcpy(bytes_of(body) + offsetof(zan_body, src), name, 0);
}

void set_source_to_self(zan_body &body) {
    set_source_within_field(body, module_name());
}

void set_source_within_field(zan_body &body, std::string_view name) {
    std::memcpy(body.src, name.data(), name.size());
    if (name.size() < sizeof body.src)
        body.src[name.size()] = '\0';
}

void set_payload(zan_body &body, const char *payload, std::size_t size, int len) {
    const std::size_t copied = std::min(size, sizeof body.data);
    if (copied > 0) // an empty payload may be a null pointer
        std::memcpy(body.data, payload, copied);
    body.len = len;
    const int payload_end = ZAN_HEADER_SIZE + static_cast<int>(copied);
    zero_after(body, payload_end, std::min<int>(len, ZAN_DATA_SIZE) + ZAN_HEADER_SIZE);
}

void zero_after(zan_body &body, int received, int end) {
    if (received < end)
        std::memset(bytes_of(body) + received, 0, static_cast<std::size_t>(end - received));
}

void convert_byte_order(zan_body &body) {
    wire::convert_byte_order(body);
}

} // namespace zan
