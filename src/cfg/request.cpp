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

void build(zan_msg &msg, const Request &request) {
    begin_record(msg, g_msq_qid, request.type, request.cmd);
    zan_body &body = msg.body;
    set_destination(body, request.destination);
    set_source_to_self(body);
    set_payload(body, request.payload.data(), request.payload.size(), request.len);
    body.pid = own_pid();
    if (request.timed)
        body.time = static_cast<int32_t>(std::time(nullptr));
}

} // namespace

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
    build(record.msg, request);
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
