// SPDX-License-Identifier: MIT
// Changes to the firewall: command lines for the daemon's "firewall_cntl".
#include "cfg/control.h"
#include "cfg/formatted.h"

#include <cstdio>
#include <initializer_list>

namespace zan {
namespace {

constexpr ReportLine firewall_report[] = {ReportLine::subject, ReportLine::failure};

constexpr char tool[] = "firewall_cntl";
constexpr char tool_on_bridge[] = "firewall_cntl -b";

// Left out of the line if the value is null.
struct Option {
    char letter;
    const char *value;
};

int request_firewall(const char *function, const char *command,
                     std::initializer_list<Option> options) {
    char line[command_line_size];
    constexpr int longest = sizeof line - 1;
    int end = std::snprintf(line, sizeof line, "%s", command);
    for (const auto &[letter, value] : options) {
        if (value == nullptr || end == longest)
            continue;
        const int added = std::snprintf(line + end, sizeof line - static_cast<std::size_t>(end),
                                        " -%c %s", letter, value);
        end = added < longest - end ? end + added : longest;
    }
    const Command control = control_command(function, "cmd_line", firewall_report);
    return post({.command = control, .payload = line, .len = command_line_size, .subject = line});
}

} // namespace
} // namespace zan

using namespace zan;

int zan_firewall_request(const char *f, const char *p) {
    if (f == nullptr)
        return ZAN_ERR;
    return request_firewall("zan_firewall_request", tool, {{'f', f}, {'p', p}});
}

int zan_firewall_request2(const char *f, const char *p, const char *a) {
    if (f == nullptr)
        return ZAN_ERR;
    return request_firewall("zan_firewall_request2", tool, {{'f', f}, {'p', p}, {'a', a}});
}

int zan_firewall_request3(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, text, fmt);
    return request_firewall("zan_firewall_request3", tool, {{'C', text.text()}});
}

int zan_firewall_request4(const char *f, const char *k) {
    if (f == nullptr)
        return ZAN_ERR;
    return request_firewall("zan_firewall_request4", tool, {{'f', f}, {'k', k}});
}

int zan_firewall_l2b_notify(const char *p, const char *i, int m) {
    if (p == nullptr || i == nullptr)
        return ZAN_ERR;
    char number[16];
    zan_sprintf(number, sizeof number, "%d", m);
    return request_firewall("zan_firewall_l2b_notify", tool_on_bridge,
                            {{'p', p}, {'i', i}, {'m', number}});
}

int zan_firewall_recv_msq(void) {
    return dispatch_next();
}
