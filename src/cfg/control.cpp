// SPDX-License-Identifier: MIT
// Values read over the daemon link, and command lines for the daemon.
#include "cfg/control.h"

#include "cfg/formatted.h"
#include "msg/identity.h"
#include "msg/lock.h"
#include "msg/request_record.h"
#include "msg/stream.h"
#include "util/number.h"

#include <cstdio>

namespace zan {
namespace {

constexpr Command get_over_link = {"ctl_getstr", ZAN_CFG_GET};
constexpr ReportLine control_report[] = {ReportLine::failure_subject};
constexpr Command control = control_command("zan_ctl_request", "cmdline", control_report);

constexpr std::size_t number_size = 256;

bool mesh_is_ready() {
    const bool ready = zan_mesh_status() != 0;
    if (!ready)
        std::printf("%s: fail by mesh not ready\n", get_over_link.function);
    return ready;
}

int send_over_link(const Request &request) {
    return with_request_record([&](ReceiveRecord &record) {
        zan_body &body = record.msg.body;
        begin_request(body, request);
        const int msgsz = ZAN_HEADER_SIZE + body.len;
        convert_byte_order(body);
        return zan_ipc_send(g_ipc_handle, &body, msgsz);
    });
}

int read_over_link(const Formatted &path, char *value, int size) {
    const ApiLock lock;
    const int sent = send_over_link(text_request(get_over_link, path.text()));
    if (sent <= 0)
        return sent;
    Answer answer;
    const int result = await_stream_answer(ZAN_CLASS_CFG, ZAN_CFG_GET, nullptr, &answer);
    zan_strcpy(value, answer.text, size);
    return result;
}

} // namespace
} // namespace zan

using namespace zan;

int ctl_getstr(char *value, int size, const char *fmt, ...) {
    if (!mesh_is_ready())
        return ZAN_ERR_MESH;
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return read_over_link(path, value, size);
}

int ctl_getint(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(0, path, fmt);
    char number[number_size] = {};
    // The message names cfg_getint, as on every device in the field.
    if (!mesh_is_ready() || read_over_link(path.formatted_again(), number, sizeof number) != 1)
        std::printf("cfg_getint failed for %s\n", path.text());
    return to_int(number);
}

int zan_ctl_request(const char *cmdline) {
    if (cmdline == nullptr)
        return ZAN_ERR;
    char text[command_line_size];
    zan_strcpy(text, cmdline, sizeof text);
    return post(
        {.command = control, .payload = text, .len = command_line_size, .subject = cmdline});
}
