// SPDX-License-Identifier: MIT
// System actions, which the daemon's file-and-action module executes.  They take no lock.
// HAZARD: the wait of another action, or any receive of their class or of any type, can
// take the answer.
#include "wire/action.h"
#include "cfg/formatted.h"
#include "msg/request.h"

#include <cstdio>

namespace zan {
namespace {

constexpr Command action_command(const char *function, int cmd, const char *destination) {
    return {.function = function,
            .cmd = cmd,
            .type = ZAN_CLASS_ACTION,
            .destination = destination,
            .report = short_report};
}
constexpr Command event_result =
    action_command("zan_report_event_result", ZAN_ACTION_EVENT_RESULT, "");

int act(zan_action action, int wait, int param, const char *name = nullptr) {
    return zan_fad_send(action, wait, param, action, name);
}

int refuse(const char *reason) {
    std::puts(reason);
    return ZAN_ERR_REFUSED;
}

int upgrade(zan_action action, int wait, int param, const char *filename) {
    if (filename == nullptr)
        return refuse("fad: filename can not be empty");
    return act(action, wait, param, filename);
}

int refuse_shell() {
    return refuse("fad: unable to run null shell commad!");
}

} // namespace
} // namespace zan

using namespace zan;

int zan_fad_send(int cmd, int wait, int param, int code, const char *name) {
    zan_action_data action = {
        .code = code, .wait = wait, .param = param >= 0 ? param : 0, .name = {}};
    zan_strcpy(action.name, name, sizeof action.name);
    const Command command = action_command("zan_fad_send", cmd, ZAN_MODULE_ACTION);
    ReceiveRecord record;
    const int sent =
        send_request(record.msg, {.command = command, .payload = wire::bytes_of(action)});
    if (sent < 0)
        return sent;
    return wait != 0 ? await_answer(record, command.type, cmd, nullptr, nullptr) : 1;
}

int zan_upgrade_firmware(int wait, int param, const char *filename) {
    return upgrade(ZAN_ACTION_UPGRADE_FIRMWARE, wait, param, filename);
}

int zan_upgrade_config(int wait, int param, const char *filename) {
    return upgrade(ZAN_ACTION_UPGRADE_CONFIG, wait, param, filename);
}

int zan_save_config(int wait, int param) {
    return act(ZAN_ACTION_SAVE_CONFIG, wait, param);
}

int zan_save_config2(int wait, int param) {
    return act(ZAN_ACTION_SAVE_CONFIG2, wait, param);
}

int zan_factory_reset(int wait, int param, const char *name) {
    return act(ZAN_ACTION_FACTORY_RESET, wait, param, name);
}

int zan_factory_reset_wo_wifi(int wait, int param, const char *name) {
    return act(ZAN_ACTION_FACTORY_RESET_WO_WIFI, wait, param, name);
}

int zan_backup_config(int wait, int param, const char *name) {
    return act(ZAN_ACTION_BACKUP_CONFIG, wait, param, name);
}

int zan_backup_old_config(int wait, int param, const char *name) {
    return act(ZAN_ACTION_BACKUP_OLD_CONFIG, wait, param, name);
}

int zan_run_shell(int wait, int param, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(refuse_shell(), command, fmt, ZAN_LONGEST_SHELL_COMMAND + 1);
    return act(ZAN_ACTION_RUN_SHELL, wait, param, command.text());
}

int zan_reboot(int wait) {
    zan_system("appmgrcmd del sipapp");
    return act(ZAN_ACTION_REBOOT, wait, -1);
}

int zan_save_log(void) {
    return act(ZAN_ACTION_SAVE_LOG, 0, 0);
}

int zan_fad_recv_msq(void) {
    return dispatch_pending("zan_fad_recv_msq", 0, Enomsg::printed);
}

int zan_report_event_result(int event, int result) {
    zan_action_data answer = {.code = event, .wait = 0, .param = 0, .name = {}};
    zan_sprintf(answer.name, sizeof answer.name, "%d", result);
    return post({.command = event_result, .payload = wire::bytes_of(answer)});
}
