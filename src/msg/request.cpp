// SPDX-License-Identifier: MIT
#include "msg/request.h"

#include "msg/identity.h"
#include "msg/lock.h"
#include "msg/request_record.h"

#include <cstdio>
#include <ctime>

namespace zan {
namespace {

void report_line(const Request &request, ReportLine line) {
    const Command &command = request.command;
    switch (line) {
    case ReportLine::failure:
        std::printf("%s:zan_msg_send fail!\n", command.function);
        break;
    case ReportLine::failure_subject:
        std::printf("%s:zan_msg_send fail! %s=%s\n", command.function, command.label,
                    request.subject);
        break;
    case ReportLine::subject:
        if (command.label != nullptr)
            std::printf("%s: %s=%s\n", command.function, command.label, request.subject);
        break;
    case ReportLine::pid:
        std::printf("%s: pid=%d\n", command.function, own_pid());
        break;
    }
}

} // namespace

void begin_request(zan_body &body, const Request &request) {
    const Command &command = request.command;
    begin_body(body, command.type, command.cmd);
    set_destination(body, command.destination);
    set_source_to_self(body);
    set_payload(body, request.payload.data(), request.payload.size(), request.len);
    body.pid = own_pid();
    body.arg = request.arg;
    if (command.timed)
        body.time = static_cast<int32_t>(std::time(nullptr));
}

int send_request(zan_msg &msg, const Request &request) {
    msg.mtype = g_msq_qid;
    begin_request(msg.body, request);
    const int sent = zan_msg_send(g_zan_qid, &msg, ZAN_HEADER_SIZE + request.len);
    if (sent >= 0)
        return sent;
    for (const ReportLine line : request.command.report)
        report_line(request, line);
    return ZAN_ERR_SEND;
}

int post(const Request &request) {
    zan_msg msg;
    return send_request(msg, request);
}

int exchange(const Request &request, const AnswerReader &read) {
    return with_request_record([&](ReceiveRecord &record) {
        const int sent = send_request(record.msg, request);
        if (sent < 0)
            return sent;
        const Command &command = request.command;
        Answer answer;
        const int result = await_answer(record, command.type, command.cmd, nullptr, &answer);
        if (answer.text != nullptr)
            read(answer);
        return result;
    });
}

int exchange_locked(const Request &request, const AnswerReader &read) {
    const ApiLock lock;
    return exchange(request, read);
}

int exchange_for_text(const Request &request, char *value, int size) {
    return exchange_locked(request,
                           [&](const Answer &answer) { zan_strcpy(value, answer.text, size); });
}

} // namespace zan
