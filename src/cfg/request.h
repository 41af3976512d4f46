// SPDX-License-Identifier: MIT
// The one path that every request to the daemon takes; what differs between
// requests is data.
#ifndef ZAN_CFG_REQUEST_H
#define ZAN_CFG_REQUEST_H

#include "msg/answer.h"
#include "msg/lock.h"

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace zan {

// A line of a failure report: "FUNCTION: LABEL=TEXT".  Without a label, none.
struct ReportLine {
    const char *label = nullptr;
    const char *text = nullptr;
};

struct Request {
    const char *function; // begins every diagnostic line
    int type;
    int cmd;
    const char *destination;
    std::string_view payload;
    int len; // of the record; bytes beyond the payload are zeros
    ReportLine report = {};
    bool timed = false; // carries the time of sending
};

// A request to the configuration tree, whose payload is text.
Request configuration_request(const char *function, int cmd, const char *payload,
                              ReportLine report);

// Fills the record from `type` on.
void begin_request(zan_body &body, const Request &request);

// Sends the request and waits for its answer: 1, ZAN_ERR_SEND after the failure
// report, or what the wait returned.  The caller holds the API lock until it is
// done with the answer.
int exchange(const Request &request, Answer *answer = nullptr);

// The whole request: lock, exchange, copy of the answer's text, unlock.
int exchange_locked(const Request &request);
int exchange_for_text(const Request &request, char *value, int size);

// A configuration path, formatted and cut to its bound.
class Path {
public:
    Path(const char *format, va_list arguments, std::size_t bound = ZAN_PATH_SIZE);

    // The functions that read and write numbers hand their formatted path on as a
    // format.  There are no arguments for it, so "%%" is all that it can say; any
    // other "%" stays as it is.
    Path formatted_again() const { return Path(text_); }

    // Drops the character when the path fills its storage.
    void append(char c);

    const char *text() const { return text_; }

private:
    explicit Path(const char *format);

    char text_[ZAN_PATH_SIZE];
};

} // namespace zan

#endif
