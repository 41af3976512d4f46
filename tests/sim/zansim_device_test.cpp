// SPDX-License-Identifier: MIT
//
// The example tree, over everything that modules usually ask of it.
#include "sim/zansim.h"

#include <string>

namespace zan::test {

namespace {

class Device : public ZansimTest {
protected:
    Device() { autostart_ = false; }
    void SetUp() override { start(device_file()); }
};

TEST_F(Device, HasTheSizeOfARealOne) {
    const std::string &ready = zansim().program().output();
    const std::size_t comma = ready.rfind(", ");
    ASSERT_NE(comma, std::string::npos);
    EXPECT_GE(std::stoi(ready.substr(comma + 2)), 300);
}

TEST_F(Device, HasTheHardwareFacts) {
    for (const char *const path :
         {"/runtime/hw/model", "/runtime/hw/type", "/runtime/hw/customer_id"})
        EXPECT_GT(std::stoi(module().get(path).payload()), 0) << path;
}

TEST_F(Device, HasUsersWithNamesAndPasswords) {
    const int users = std::stoi(module().get("/sys/user#").payload());
    ASSERT_GE(users, 1);
    for (int i = 1; i <= users; ++i) {
        const std::string user = "/sys/user:" + std::to_string(i);
        EXPECT_EQ(module().get(user + "/name").record.result(), 1);
        EXPECT_EQ(module().get(user + "/password").record.result(), 1);
    }
}

TEST_F(Device, HasWhatTheLibraryAsksFor) {
    const std::string mesh = "/InternetGatewayDevice/X_ORVANE_EasyMesh";
    for (const std::string &path :
         {std::string("/sys/config_type"), std::string("/sys/log/cwmp/loglevel"),
          std::string("/sys/log/cwmp/logdest"), std::string("/runtime/app/tr069/config_state"),
          mesh + "/Enable", mesh + "/DeviceRole", mesh + "/ReInitWifiFlag",
          mesh + "/Status/TopologyOptimize",
          std::string("/InternetGatewayDevice/X_ORVANE_OMCI/IPHost/InterfaceReference")})
        EXPECT_EQ(module().get(path).record.result(), 1) << path;
}

TEST_F(Device, LetsAMeshAgentBePlayed) {
    const std::string mesh = "/InternetGatewayDevice/X_ORVANE_EasyMesh";
    EXPECT_EQ(module().set(mesh + "/Enable", "1").record.result(), 1);
    EXPECT_EQ(module().set(mesh + "/DeviceRole", "Agent").record.result(), 1);
    EXPECT_EQ(module().set(mesh + "/Status/TopologyOptimize", "1").record.result(), 1);
    EXPECT_EQ(module().set(mesh + "/ReInitWifiFlag", "1").record.result(), 1);
    EXPECT_EQ(module().set("/runtime/app/tr069/config_state", "1").record.result(), 1);
}

TEST_F(Device, TakesNewPortMappings) {
    const std::string mappings =
        "/InternetGatewayDevice/WANDevice:1/WANConnectionDevice:1/WANIPConnection:1/PortMapping";
    EXPECT_EQ(module().call(class_cfg, cmd_anchor, mappings).record.result(), 1);
    expect_value(mappings + "#", "2");
    EXPECT_EQ(module().set(mappings + ":2/ExternalPort", "65535").record.result(), 1);
    expect_refused(module().set(mappings + ":2/ExternalPort", "65536"), class_cfg, cmd_set, -105,
                   "value is not uint from 0 to 65535: " + mappings + ":2/ExternalPort");
}

} // namespace

} // namespace zan::test
