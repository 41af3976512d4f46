// SPDX-License-Identifier: MIT
// The one path that every request to the daemon takes; what differs between
// requests is data.
#ifndef ZAN_CFG_REQUEST_H
#define ZAN_CFG_REQUEST_H

#include "msg/answer.h"
#include "msg/lock.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
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

// Sends the request and waits for its answer: 1, ZAN_ERR_SEND after the failure
// report, or what the wait returned.  The caller holds the API lock until it is
// done with the answer.
int exchange(const Request &request, Answer *answer = nullptr);

// The whole request: lock, exchange, copy of the answer's text, unlock.
int exchange_locked(const Request &request);
int exchange_for_text(const Request &request, char *value, int size);

// A configuration path, formatted and cut to its bound.  The two forms that most
// calls have, a plain path and "%s", need no formatter.
template <std::size_t size = ZAN_PATH_SIZE> class Path {
public:
    Path(const char *format, va_list arguments) {
        if (std::strchr(format, '%') == nullptr)
            copy(format);
        else if (std::strcmp(format, "%s") == 0)
            copy(va_arg(arguments, const char *));
        else if (std::vsnprintf(text_, size, format, arguments) < 0)
            text_[0] = '\0';
    }

    const char *text() const { return text_; }

private:
    void copy(const char *path) {
        const std::size_t length = path != nullptr ? strnlen(path, size - 1) : 0;
        if (length > 0)
            std::memcpy(text_, path, length);
        text_[length] = '\0';
    }

    char text_[size];
};

} // namespace zan

#endif
