// SPDX-License-Identifier: MIT
#include "msg/identity.h"

constinit int g_zan_qid = zan::no_queue;
constinit int g_reg_msq_qid = zan::no_queue;
constinit int g_msq_qid = zan::no_queue;
constinit int g_msq_qid2 = zan::no_queue;
constinit char g_module_name[ZAN_NAME_SIZE] = {};
