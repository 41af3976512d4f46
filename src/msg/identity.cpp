// SPDX-License-Identifier: MIT
#include "msg/identity.h"

#include <cstring>
#include <unistd.h>

constinit int g_zan_qid = zan::no_queue;
constinit int g_reg_msq_qid = zan::no_queue;
constinit int g_msq_qid = zan::no_queue;
constinit int g_msq_qid2 = zan::no_queue;
constinit int g_ipc_handle = zan::no_link;
constinit char g_module_name[ZAN_NAME_SIZE] = {};
constinit char g_agent_name[ZAN_NAME_SIZE] = {};

namespace zan {

std::string_view module_name() {
    return {g_module_name, strnlen(g_module_name, sizeof g_module_name)};
}

int own_pid() {
    return static_cast<int>(getpid());
}

} // namespace zan
