// SPDX-License-Identifier: MIT
// The one path that every request to the daemon takes; requests differ in data only.
#pragma once

#include "msg/answer.h"

#include <span>
#include <string_view>

namespace zan {

// A line that a failed send prints.
enum class ReportLine {
    failure,         // "FUNCTION:zan_msg_send fail!"
    failure_subject, // "FUNCTION:zan_msg_send fail! LABEL=SUBJECT"
    subject,         // "FUNCTION: LABEL=SUBJECT", when there is a label
    pid,             // "FUNCTION: pid=PID"
};
inline constexpr ReportLine usual_report[] = {ReportLine::failure, ReportLine::subject,
                                              ReportLine::pid};
inline constexpr ReportLine short_report[] = {ReportLine::failure};

// The constant part of a function's requests.
struct Command {
    const char *function; // at the start of every diagnostic line
    int cmd;
    const char *label = nullptr;
    int type = ZAN_CLASS_CFG;
    const char *destination = ZAN_MODULE_CFG;
    bool timed = false; // carries the time of sending
    std::span<const ReportLine> report = usual_report;
};

struct Request {
    const Command &command;
    std::string_view payload = {};
    int len = static_cast<int>(payload.size()); // of the record; bytes after the payload are 0
    const char *subject = nullptr;              // of the report
    int arg = 0;
};

// A request whose payload is a text, which is also the subject of the report.
inline Request text_request(const Command &command, const char *text) {
    return {.command = command, .payload = text, .subject = text};
}

// Fills the record from `type` on.
void begin_request(zan_body &body, const Request &request);

// Sends without waiting for an answer: the send's result, which is 0, or
// ZAN_ERR_SEND after the report.
int send_request(zan_msg &msg, const Request &request);
// The same on its own storage, 35 KB of stack.
int post(const Request &request);

// Reads an answer's text while the record that holds it still belongs to the request.
// Not called if there is no text.
class AnswerReader {
public:
    // Leaves the text unread.
    AnswerReader() = default;
    // Calls read(answer); refers to it, and so lives no longer than the expression.
    template<typename Read>
    AnswerReader(const Read &read) // NOLINT(google-explicit-constructor): for lambdas
        : read_(&read), call_([](const void *function, const Answer &answer) {
              (*static_cast<const Read *>(function))(answer);
          }) {}

    void operator()(const Answer &answer) const {
        if (call_ != nullptr)
            call_(read_, answer);
    }

private:
    const void *read_ = nullptr;
    void (*call_)(const void *, const Answer &) = nullptr;
};

// Sends the request and waits for its answer: 1, ZAN_ERR_SEND after the report,
// or what the wait returned.  The caller holds the API lock.
int exchange(const Request &request, const AnswerReader &read = {});

// The whole request: lock, exchange, unlock.
int exchange_locked(const Request &request, const AnswerReader &read = {});
// Copies the answer's text to the buffer, if there is one.
int exchange_for_text(const Request &request, char *value, int size);

} // namespace zan
