// SPDX-License-Identifier: MIT
#include "cfg/request.h"

#include "msg/identity.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace zan {
namespace {

void report_failed_send(const Request &request) {
    std::printf("%s:zan_msg_send fail!\n", request.function);
    if (request.report.label != nullptr)
        std::printf("%s: %s=%s\n", request.function, request.report.label, request.report.text);
    std::printf("%s: pid=%d\n", request.function, own_pid());
}

void copy_bounded(char *text, const char *source, std::size_t bound) {
    const std::size_t length = source != nullptr ? strnlen(source, bound - 1) : 0;
    if (length > 0)
        std::memcpy(text, source, length);
    text[length] = '\0';
}

} // namespace

// The two forms that most calls have, a plain path and "%s", need no formatter.
Path::Path(const char *format, va_list arguments, std::size_t bound) {
    if (std::strchr(format, '%') == nullptr)
        copy_bounded(text_, format, bound);
    else if (std::strcmp(format, "%s") == 0)
        copy_bounded(text_, va_arg(arguments, const char *), bound);
    else if (std::vsnprintf(text_, bound, format, arguments) < 0)
        text_[0] = '\0';
}

Path::Path(const char *format) {
    char *out = text_;
    for (const char *in = format; *in != '\0'; ++in) {
        if (in[0] == '%' && in[1] == '%')
            ++in;
        *out++ = *in;
    }
    *out = '\0';
}

void Path::append(char c) {
    const std::size_t length = std::strlen(text_);
    if (length + 1 < sizeof text_) {
        text_[length] = c;
        text_[length + 1] = '\0';
    }
}

void begin_request(zan_body &body, const Request &request) {
    begin_body(body, request.type, request.cmd);
    set_destination(body, request.destination);
    set_source_to_self(body);
    set_payload(body, request.payload.data(), request.payload.size(), request.len);
    body.pid = own_pid();
    if (request.timed)
        body.time = static_cast<int32_t>(std::time(nullptr));
}

Request configuration_request(const char *function, int cmd, const char *payload,
                              ReportLine report) {
    const std::string_view text(payload);
    return {.function = function,
            .type = ZAN_CLASS_CFG,
            .cmd = cmd,
            .destination = "ZAN_CFG",
            .payload = text,
            .len = static_cast<int>(text.size()),
            .report = report};
}

int exchange(const Request &request, Answer *answer) {
    ReceiveRecord &record = api_record();
    record.msg.mtype = g_msq_qid;
    begin_request(record.msg.body, request);
    if (zan_msg_send(g_zan_qid, &record.msg, ZAN_HEADER_SIZE + request.len) < 0) {
        report_failed_send(request);
        return ZAN_ERR_SEND;
    }
    return match_answer(record, request.type, request.cmd, nullptr, answer);
}

int exchange_locked(const Request &request) {
    const ApiLock lock;
    return exchange(request);
}

int exchange_for_text(const Request &request, char *value, int size) {
    const ApiLock lock;
    Answer answer;
    const int result = exchange(request, &answer);
    zan_strcpy(value, answer.text, size);
    return result;
}

} // namespace zan
