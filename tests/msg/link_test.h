// SPDX-License-Identifier: MIT
#pragma once

#include "support/commands.h"
#include "support/stream_peer.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace zan::test {

inline constexpr int registration = class_registration;
inline constexpr int message = class_message;
inline constexpr int notification = class_notify;

inline std::string from_daemon(const Fields &fields) {
    return stream_bytes(fields, ByteOrder::network);
}

// What asks the daemon for a record that wakes the module.
inline std::string empty_message() {
    return stream_bytes({.type = 1,
                         .cmd = 20,
                         .dst = "ZAN_CFG",
                         .src = "probe",
                         .pid = static_cast<std::int32_t>(getpid())},
                        ByteOrder::host);
}

// Messages that reached the handler, each as the bytes of its whole record.
inline std::vector<std::string> &delivered() {
    static std::vector<std::string> records;
    return records;
}

// A module "probe" with a link to a scripted peer; it takes messages.
class LinkTest : public testing::Test {
protected:
    LinkTest() {
        delivered().clear();
        zan_strcpy(g_module_name, "probe", sizeof g_module_name);
        g_ipc_handle = zan_ipc_create("probe", 0);
        zan_set_message_handler([](char *, int len, zan_body *body) {
            delivered().emplace_back(reinterpret_cast<const char *>(body),
                                     raw_header_size + static_cast<std::size_t>(len));
            return 0;
        });
    }

    void SetUp() override {
        ASSERT_GE(g_ipc_handle, 0);
        ASSERT_TRUE(peer.wait_for_connections(1));
    }

    ~LinkTest() override { zan_ipc_delete(g_ipc_handle); }

    void bytes_arrive(const std::string &bytes) { peer.deliver(g_ipc_handle, bytes); }
    void arrives(const Fields &fields) { bytes_arrive(from_daemon(fields)); }

    // One whole record is received, header and payload.
    static int receive_record(char *buf = nullptr, int size = 0) {
        int result = 0;
        while (result == 0 && bytes_waiting(g_ipc_handle) > 0)
            result = zan_client_recv(g_ipc_handle, buf, size);
        return result;
    }

    // How a record reached the handler: every word in the order of this machine.
    static testing::AssertionResult was_delivered(std::size_t index, const Fields &fields) {
        if (index >= delivered().size())
            return testing::AssertionFailure() << "only " << delivered().size() << " delivered";
        return same_bytes(delivered()[index], stream_bytes(fields, ByteOrder::host));
    }

    StreamPeer peer;
};

} // namespace zan::test
