// SPDX-License-Identifier: MIT
#include "package/layout.h"
#include "support/raw.h"

#include <gtest/gtest.h>

#include <memory>

extern "C" void fill_in_c(zan_msg *msg);

namespace zan::test {
namespace {

TEST(Layout, OfARecordFilledInCIsWhatTravelsOnAQueue) {
    RawQueue queue;
    const auto msg = std::make_unique<zan_msg>();
    fill_in_c(msg.get());
    ASSERT_EQ(zan_msg_send(queue.id(), msg.get(), 107), 0);
    const auto received = raw_receive(queue.id());
    ASSERT_TRUE(received.has_value());
    EXPECT_TRUE(same_record(*received, {.mtype = 1001,
                                        .type = 1002,
                                        .cmd = 1003,
                                        .dst = "destination",
                                        .src = "source",
                                        .pid = 1004,
                                        .time = 1005,
                                        .spare = 1006,
                                        .result = -1007,
                                        .aux = 1008,
                                        .arg = 1009,
                                        .payload = "payload",
                                        .len = 1010}));
}

// Numbers that both sides of the queues and their logs rely on.
TEST(Layout, OfTheConstantsIsPinned) {
    EXPECT_EQ(ZAN_ERR, -1);
    EXPECT_EQ(ZAN_ERR_TIMEOUT, -2);
    EXPECT_EQ(ZAN_ERR_SEND, -2003);
    EXPECT_EQ(ZAN_ERR_CREATE, -2005);
    EXPECT_EQ(ZAN_ERR_REMOVE, -2006);
    EXPECT_EQ(ZAN_ERR_MESH, -2010);
    EXPECT_EQ(ZAN_ERR_QUEUE_IDS, -2105);
    EXPECT_EQ(ZAN_ERR_REFUSED, -7007);
    EXPECT_EQ(ZAN_CLASS_CFG, 1);
    EXPECT_EQ(ZAN_CLASS_CWMP, 2);
    EXPECT_EQ(ZAN_CLASS_REGISTRATION, 3);
    EXPECT_EQ(ZAN_CLASS_MESSAGE, 4);
    EXPECT_EQ(ZAN_CLASS_NOTIFY, 5);
    EXPECT_EQ(ZAN_CLASS_ACTION, 7);
    EXPECT_EQ(ZAN_CLASS_CONTROL, 8);
    EXPECT_EQ(ZAN_CLASS_BROADCAST, 9);
    EXPECT_EQ(ZAN_CFG_GET, 1);
    EXPECT_EQ(ZAN_CFG_SET, 2);
    EXPECT_EQ(ZAN_CFG_DELETE, 3);
    EXPECT_EQ(ZAN_CFG_RELOAD, 4);
    EXPECT_EQ(ZAN_CFG_DUMP, 5);
    EXPECT_EQ(ZAN_CFG_SET_FILE, 7);
    EXPECT_EQ(ZAN_CFG_PRINT, 12);
    EXPECT_EQ(ZAN_CFG_GET_ATTR, 15);
    EXPECT_EQ(ZAN_CFG_SET_ATTR, 16);
    EXPECT_EQ(ZAN_CFG_LOGIN, 19);
    EXPECT_EQ(ZAN_CFG_EMPTY, 20);
    EXPECT_EQ(ZAN_CFG_RESET, 21);
    EXPECT_EQ(ZAN_CFG_CONVERT_PATH, 22);
    EXPECT_EQ(ZAN_CFG_GET_ARRAY, 23);
    EXPECT_EQ(ZAN_CFG_ANCHOR, 25);
    EXPECT_EQ(ZAN_CFG_IFNAME, 29);
    EXPECT_EQ(ZAN_CFG_RESERVED_30, 30);
    EXPECT_EQ(ZAN_CFG_CONVERT, 31);
    EXPECT_EQ(ZAN_CFG_APPLY_ALL, 32);
    EXPECT_EQ(ZAN_CFG_APPLY_FIREWALL, 33);
    EXPECT_EQ(ZAN_CFG_MODULE_PID, 34);
    EXPECT_EQ(ZAN_REGISTER, 0);
    EXPECT_EQ(ZAN_UNREGISTER, 1);
    EXPECT_EQ(ZAN_MESSAGE_SEND_WITH_ACK, 1);
    EXPECT_EQ(ZAN_MESSAGE_ACK, 2);
    EXPECT_EQ(ZAN_MESSAGE_SEND_ALL, 3);
    EXPECT_EQ(ZAN_MESSAGE_SEND, 4);
    EXPECT_EQ(ZAN_NOTIFY_REGISTER_VALUE, 0);
    EXPECT_EQ(ZAN_NOTIFY_REGISTER_EVENT, 1);
    EXPECT_EQ(ZAN_NOTIFY_UNREGISTER_VALUE, 2);
    EXPECT_EQ(ZAN_NOTIFY_UNREGISTER_EVENT, 3);
    EXPECT_EQ(ZAN_NOTIFY_VALUE_CHANGED, 7);
    EXPECT_EQ(ZAN_NOTIFY_EVENT, 8);
    EXPECT_EQ(ZAN_CONTROL_COMMAND_LINE, 0);
    EXPECT_EQ(ZAN_LOG_EMERGENCY, 0);
    EXPECT_EQ(ZAN_LOG_ALERT, 1);
    EXPECT_EQ(ZAN_LOG_CRITICAL, 2);
    EXPECT_EQ(ZAN_LOG_ERROR, 3);
    EXPECT_EQ(ZAN_LOG_WARNING, 4);
    EXPECT_EQ(ZAN_LOG_NOTICE, 5);
    EXPECT_EQ(ZAN_LOG_INFO, 6);
    EXPECT_EQ(ZAN_LOG_VERBOSE, 7);
    EXPECT_EQ(ZAN_LOG_CONSOLE, 1);
    EXPECT_EQ(ZAN_LOG_TERMINALS, 2);
    EXPECT_EQ(ZAN_LOG_SYSLOG, 3);
    EXPECT_EQ(ZAN_LOG_ALL, 4);
    EXPECT_EQ(ZAN_LOG_FILE, 5);
    EXPECT_EQ(ZAN_LOG_KEY_ID, 109);
    EXPECT_EQ(ZAN_LONGEST_MESSAGE, 1024);
    EXPECT_EQ(ZAN_LONGEST_COMMAND_LINE, 1024);
    EXPECT_EQ(ZAN_LONGEST_SHELL_COMMAND, 511);
    EXPECT_EQ(ZAN_LONGEST_FILE_NAME, 1023);
    EXPECT_EQ(ZAN_LONGEST_LOGIN, 1022);
    EXPECT_EQ(ZAN_LONGEST_ATTRIBUTES, 1022);
    EXPECT_EQ(ZAN_LONGEST_PRINT, 1023);
    EXPECT_EQ(ZAN_LONGEST_CHANGED_VALUE, 1023);
    EXPECT_STREQ(ZAN_MODULE_CORE, "ZAN");
    EXPECT_STREQ(ZAN_MODULE_CFG, "ZAN_CFG");
    EXPECT_STREQ(ZAN_MODULE_CWMP, "ZAN_CWMP");
    EXPECT_STREQ(ZAN_MODULE_ACTION, "ZAN_FAD");
}

TEST(Layout, QueueIdsStartUnknown) {
    EXPECT_EQ(g_zan_qid, -1);
    EXPECT_EQ(g_reg_msq_qid, -1);
    EXPECT_EQ(g_msq_qid, -1);
    EXPECT_EQ(g_msq_qid2, -1);
    EXPECT_STREQ(g_module_name, "");
}

} // namespace
} // namespace zan::test
