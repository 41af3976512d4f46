// SPDX-License-Identifier: MIT
#include "msg/identity.h"
#include "msg/record.h"
#include "util/number.h"

#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace zan {
namespace {

constexpr int retries = 3;
constexpr int second_queue_instance = 1;

int read_queue_id(const char *function, const char *path) {
    FILE *file = std::fopen(path, "rb");
    if (file == nullptr) {
        std::printf("%s:The file %s is not exist\n", function, path);
        return no_queue;
    }
    char text[16 + 1] = {};
    const std::size_t length = std::fread(text, 1, sizeof text - 1, file);
    text[length] = '\0';
    zan_fclose(file);
    return to_int(text);
}

int send_registration(int cmd, int qid, const char *name, int pid) {
    // A long name runs over into the payload area.
    zan_msg msg;
    begin_record(msg, qid, ZAN_CLASS_REGISTRATION, cmd);
    set_source(msg.body, name);
    msg.body.pid = pid;
    msg.body.len = 0;
    return zan_msg_send(g_zan_qid, &msg, ZAN_HEADER_SIZE) < 0 ? ZAN_ERR_SEND : 0;
}

// One attempt, on a new queue that is stored in *own and kept even if the attempt fails.
// `label` names *own in the message about clashing ids.
int register_queue(const char *name, int instance, int proj_id, int *own, const char *label) {
    g_zan_qid = zan_get_msq_qid();
    g_reg_msq_qid = zan_get_reg_msq_qid();
    *own = zan_msg_create_by_id(name, instance, proj_id);
    if (g_zan_qid < 0 || g_reg_msq_qid < 0 || *own < 0)
        return ZAN_ERR_QUEUE_IDS;
    if (*own == g_zan_qid || *own == g_reg_msq_qid) {
        std::printf("!!!Error: the %s=%d is same as zan_qid=%d or zan_req_qid=%d\n", label, *own,
                    g_zan_qid, g_reg_msq_qid);
        return ZAN_ERR_QUEUE_IDS;
    }
    const int sent = send_registration(ZAN_REGISTER, *own, name, instance);
    if (sent < 0)
        return sent;
    const int result = zan_client_recv_reg_msq(*own, nullptr);
    return result < 0 ? result : *own;
}

int zan_register_msq_by_id(const char *name, int instance, int proj_id) {
    return register_queue(name, instance, proj_id, &g_msq_qid, "msq_qid");
}

enum class FailedQueue { remove, keep };

// A queue left by a killed module makes the creation with its key fail; the next project
// id gives another key.
int retry_registration(const char *label, const char *name, int instance, FailedQueue failed) {
    int result = ZAN_ERR_QUEUE_IDS;
    for (int proj_id = 1; proj_id <= retries; ++proj_id) {
        std::printf("%s:register fail! Retry %d[%d]...\n", label, retries + 1 - proj_id, proj_id);
        result = zan_register_msq_by_id(name, instance, proj_id);
        // Queue id 0 is accepted in the first attempt only, as on every device in the field.
        if (result > 0)
            break;
        if (failed == FailedQueue::remove)
            zan_msg_del(g_msq_qid);
    }
    return result;
}

bool ids_known(int qid) {
    return g_zan_qid >= 0 && qid >= 0 && g_reg_msq_qid >= 0;
}

// Unregisters the queue and, if the daemon agrees, removes it.  The caller holds the API
// lock and releases it afterwards.  HAZARD: if the queue cannot be removed, the lock is
// released here, too.
int unregister_queue(const char *name, int instance, int qid) {
    const int sent = send_registration(ZAN_UNREGISTER, qid, name, instance);
    if (sent < 0)
        return sent;
    const int result = zan_client_recv_reg_msq(qid, nullptr);
    if (result <= 0)
        return result;
    if (zan_msg_del(qid) < 0) {
        zan_api_unlock();
        return ZAN_ERR_REMOVE;
    }
    zan_del_msq_file(name, instance);
    return 0;
}

int zan_unregister_msq(const char *name, int instance) {
    zan_api_lock();
    int result = ZAN_ERR;
    if (ids_known(g_msq_qid))
        result = unregister_queue(name, instance, g_msq_qid);
    else
        std::printf("%s: pid=%d\n", "zan_unregister_msq", static_cast<int>(getpid()));
    zan_api_unlock();
    return result;
}

} // namespace
} // namespace zan

using namespace zan;

int zan_get_msq_qid(void) {
    return read_queue_id("zan_get_msq_qid", ZAN_QUEUE_FILE);
}

int zan_get_reg_msq_qid(void) {
    return read_queue_id("zan_get_reg_msq_qid", ZAN_REGISTRATION_QUEUE_FILE);
}

int zan_register(const char *name, int instance) {
    if (name == nullptr)
        return ZAN_ERR;
    zan_api_lock_init();
    zan_strcpy(g_module_name, name, sizeof g_module_name);
    const int result = zan_register_msq_by_id(name, instance, 0);
    if (result >= 0)
        return result;
    zan_msg_del(g_msq_qid);
    return retry_registration("zan_register_msq", name, instance, FailedQueue::remove);
}

int zan_register_msqid(const char *name) {
    if (name == nullptr)
        return ZAN_ERR;
    const int result = register_queue(name, second_queue_instance, 0, &g_msq_qid2, "g_msq_qid2");
    if (result >= 0)
        return result;
    return retry_registration("zan_register_msqid", name, second_queue_instance, FailedQueue::keep);
}

int zan_register_by_qid(int qid) {
    g_zan_qid = zan_get_msq_qid();
    g_reg_msq_qid = zan_get_reg_msq_qid();
    std::printf("%s:qid=%d\n", "zan_register_by_qid", qid);
    const std::string_view own_name = module_name();
    char name[ZAN_NAME_SIZE + 1] = {};
    std::memcpy(name, own_name.data(), own_name.size());
    const int sent = send_registration(ZAN_REGISTER, qid, name, own_pid());
    if (sent < 0)
        return sent;
    const int result = zan_client_recv_reg_msq(qid, nullptr);
    if (result < 0) {
        std::printf("%s: register fail! ret = %d\n", "zan_register_by_qid", result);
        return result;
    }
    return qid;
}

int zan_unregister(const char *name, int instance) {
    if (name == nullptr)
        return ZAN_ERR;
    zan_msq_lock_destroy();
    zan_api_lock_destroy();
    if (g_msq_qid2 > 0) {
        zan_unregister_msqid(name, second_queue_instance, g_msq_qid2);
        g_msq_qid2 = no_queue;
    }
    return zan_unregister_msq(name, instance);
}

int zan_unregister_msqid(const char *name, int instance, int qid) {
    if (name == nullptr)
        return ZAN_ERR;
    zan_api_lock();
    if (!ids_known(qid))
        return ZAN_ERR; // the lock stays held
    const int result = unregister_queue(name, instance, qid);
    zan_api_unlock();
    return result;
}
