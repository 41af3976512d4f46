// SPDX-License-Identifier: MIT
// Values read over the daemon link, and command lines for the daemon.
#include "cfg/request.h"
#include "msg/identity.h"
#include "msg/stream.h"
#include "util/number.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zan {
namespace {

constexpr std::size_t number_size = 256;
// The whole field travels, however short the command line.
constexpr int command_line_size = 1025;

int read_over_link(const char *path, char *value, int size) {
    if (zan_mesh_status() == 0) {
        std::printf("%s: fail by mesh not ready\n", "ctl_getstr");
        return ZAN_ERR_MESH;
    }
    const ApiLock lock;
    zan_body &body = api_record().msg.body;
    begin_request(body, configuration_request("ctl_getstr", ZAN_CFG_GET, path, {}));
    const int msgsz = ZAN_HEADER_SIZE + body.len;
    convert_byte_order(body);
    const int sent = zan_ipc_send(g_ipc_handle, &body, msgsz);
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
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return read_over_link(path.text(), value, size);
}

int ctl_getint(const char *fmt, ...) {
    if (fmt == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    char number[number_size] = {};
    // The message names the queue's function.
    if (read_over_link(path.formatted_again().text(), number, sizeof number) != 1)
        std::printf("cfg_getint failed for %s\n", path.text());
    return to_int(number);
}

int zan_ctl_request(const char *cmdline) {
    if (cmdline == nullptr)
        return ZAN_ERR;
    char text[command_line_size];
    const int length = zan_strcpy(text, cmdline, sizeof text);
    zan_msg msg;
    msg.mtype = g_msq_qid;
    begin_request(msg.body, {.function = "zan_ctl_request",
                             .type = ZAN_CLASS_CONTROL,
                             .cmd = 0,
                             .destination = "ZAN",
                             .payload = {text, static_cast<std::size_t>(length)},
                             .len = command_line_size,
                             .timed = true});
    const int sent = zan_msg_send(g_zan_qid, &msg, ZAN_HEADER_SIZE + command_line_size);
    if (sent < 0) {
        std::printf("%s:zan_msg_send fail! cmdline=%s\n", "zan_ctl_request", cmdline);
        return ZAN_ERR_SEND;
    }
    return sent;
}
