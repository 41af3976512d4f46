// SPDX-License-Identifier: MIT
// Requests to the remote-management client, whose answers are collected later.
#include "msg/request.h"

namespace zan {
namespace {

constexpr Command cwmp_command(int cmd) {
    return {.function = "zan_do_cwmp_request",
            .cmd = cmd,
            .type = ZAN_CLASS_CWMP,
            .destination = ZAN_MODULE_CWMP,
            .report = short_report};
}

} // namespace
} // namespace zan

using namespace zan;

int zan_do_cwmp_request(int cmd, const void *data, int len) {
    if (len < 0 || len > ZAN_DATA_SIZE)
        return ZAN_ERR;
    const Command command = cwmp_command(cmd);
    const std::size_t given = data != nullptr ? static_cast<std::size_t>(len) : 0;
    const int sent =
        post({.command = command, .payload = {static_cast<const char *>(data), given}, .len = len});
    return sent < 0 ? sent : 1;
}

int zan_cwmp_recv(int cmd, zan_resp *resp) {
    return zan_client_recv_msq_response(ZAN_CLASS_CWMP, cmd, nullptr, resp);
}

int zan_cwmp_recv_msq(void) {
    return dispatch_pending("zan_cwmp_recv_msq", ZAN_CLASS_MESSAGE);
}

int zan_cwmp_recv_notify_msq(void) {
    return dispatch_pending("zan_cwmp_recv_notify_msq", ZAN_CLASS_NOTIFY);
}
