// SPDX-License-Identifier: MIT
// Registration of a module as a mesh agent, over the daemon link.
#include "msg/identity.h"
#include "msg/lock.h"
#include "msg/record.h"
#include "msg/stream.h"
#include "util/pause.h"

#include <cstdio>

namespace zan {
namespace {

constexpr int create_attempts = 4;
constexpr int create_pause_us = 200'000;
constexpr int record_payload = 4;
constexpr int record_size = ZAN_HEADER_SIZE + record_payload;

int refuse(const char *function, const char *name, int pid) {
    std::printf("%s: module=%s pid=%d fail by mesh not ready\n", function, name, pid);
    return ZAN_ERR_MESH;
}

void build(zan_body &body, int cmd, const char *name, int pid) {
    begin_body(body, ZAN_CLASS_REGISTRATION, cmd);
    set_source(body, name);
    body.pid = pid;
    set_payload(body, "", 0, record_payload);
}

void open_link(const char *name) {
    restart_stream();
    for (int attempt = 1; attempt <= create_attempts; ++attempt) {
        g_ipc_handle = zan_ipc_create(name, 0);
        if (g_ipc_handle > 0)
            return;
        if (attempt < create_attempts)
            pause_for_us(create_pause_us);
    }
}

void close_link() {
    zan_ipc_delete(g_ipc_handle);
    g_ipc_handle = no_link;
}

} // namespace
} // namespace zan

using namespace zan;

int zan_register_agent(const char *name, int pid) {
    if (name == nullptr)
        return ZAN_ERR;
    if (zan_mesh_status() == 0)
        return refuse("zan_register_agent", name, pid);
    // A release without a lock: modules in the field depend on it.
    zan_api_unlock();
    zan_strcpy(g_agent_name, name, sizeof g_agent_name);
    if (g_ipc_handle > 0)
        close_link();
    open_link(name);
    if (g_ipc_handle < 0)
        return ZAN_ERR_CREATE;

    zan_body body;
    build(body, ZAN_REGISTER, name, pid);
    convert_byte_order(body);
    if (zan_ipc_send(g_ipc_handle, &body, record_size) < 0)
        return ZAN_ERR_SEND;
    const int result = await_stream_answer(ZAN_CLASS_REGISTRATION, ZAN_REGISTER, nullptr, nullptr);
    if (result > 0)
        return g_ipc_handle;
    close_link();
    return result;
}

int zan_unregister_agent(const char *name, int pid) {
    if (name == nullptr)
        return ZAN_ERR;
    if (zan_mesh_status() == 0)
        return refuse("zan_unregister_agent", name, pid);
    const ApiLock lock;
    zan_body body;
    // Unlike the registration it stays in host order: every device in the field sends it
    // so, and the daemon reads both.
    build(body, ZAN_UNREGISTER, name, pid);
    if (zan_ipc_send(g_ipc_handle, &body, record_size) < 0)
        return ZAN_ERR_SEND;
    await_stream_answer(ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, nullptr, nullptr);
    if (zan_ipc_delete(g_ipc_handle) < 0) {
        zan_api_unlock(); // and once more at the end
        return ZAN_ERR_REMOVE;
    }
    return 0;
}
