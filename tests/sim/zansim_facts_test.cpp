// SPDX-License-Identifier: MIT
//
// Attributes, resets, applying, logins, conversions and interface names.
#include "sim/client.h"

#include <zan.h>

namespace zan::test {

namespace {

class Facts : public ClientTest {
protected:
    Facts() { autostart_ = false; }

    void SetUp() override {
        serve(tree_file(R"({
          "sys": {
            "name": "router",
            "user": {"$instances": [
              {"name": "admin", "password": "secret", "enabled": true},
              {"name": "guest", "password": "", "enabled": true},
              {"name": "old", "password": "old", "enabled": false},
              {"name": "bare", "password": "p"}],
              "$template": {"name": "", "password": ""}}
          },
          "runtime": {"app": {"tr069": {"config_state": 0}}},
          "Lan": [{"Name": "lan1"}, {"Up": true}],
          "Wan": [{"Name": "internet", "X_ORVANE_Interface": "eth0.100"}]
        })"),
              {"--save", "/tmp/zan_saved.json"});
    }
};

int login(const char *name, const char *password, const char *fifth = nullptr) {
    zan_login_req request{name, password, "192.168.1.2", "web", fifth, -1};
    EXPECT_EQ(zan_loginauth(&request), 1);
    return request.result;
}

TEST_F(Facts, ALoginIsAnsweredWithTheNumberOfTheAccount) {
    EXPECT_EQ(login("admin", "secret"), 1);
    EXPECT_EQ(login("guest", ""), 2);
    EXPECT_EQ(login("bare", "p", "fifth"), 4);
    EXPECT_EQ(login("admin", "Secret"), 0);
    EXPECT_EQ(login("admin", ""), 0);
    EXPECT_EQ(login("nobody", "secret"), 0);
    EXPECT_EQ(login("old", "old"), 0) << "an account that is not enabled";
    EXPECT_EQ(cfg_getcount_login_account(), 4);
    EXPECT_TRUE(same_record(module().call(class_cfg, cmd_login, "admin\nsecret\na\nb"),
                            module().answer(class_cfg, cmd_login, 1, "1")));
    expect_refused(module().call(class_cfg, cmd_login, "admin\nsecret\na"), class_cfg, cmd_login,
                   -106, "malformed record: a login has 4 or 5 lines");
    ASSERT_EQ(cfg_del("/sys/user"), 1);
    expect_refused(module().call(class_cfg, cmd_login, "admin\nsecret\na\nb"), class_cfg, cmd_login,
                   -101, "no such node: /sys/user");
}

TEST_F(Facts, APathIsConverted) {
    struct Case {
        int kind;
        const char *path;
        const char *converted;
    };
    constexpr Case cases[] = {
        {0, "/A/B:1/C:12/D", "A.B.1.C.12.D"},
        {1, "/A/B:1/C:12/D", "/A/B:#/C:#/D"},
        {2, "/A/B:1/C", "/A/B:1/C"},
        {0, "A.B.1.C.", "A.B.1.C"},
        {1, "A.B.1.C", "/A/B:#/C"},
        {2, "A.B.1.C", "/A/B:1/C"},
        {2, "A.#.C", "/A:#/C"},
        {0, "/A:#/C", "A.#.C"},
        {2, "single", "/single"},
        {0, "/", ""},
    };
    for (const Case &one : cases) {
        char text[64] = "untouched";
        EXPECT_EQ(zan_convert_path(text, sizeof text, one.kind, "%s", one.path), 1) << one.path;
        EXPECT_STREQ(text, one.converted) << one.path;
    }
    const auto convert = [this](const char *payload) {
        return module().call(class_cfg, cmd_convert_path, payload);
    };
    expect_refused(convert(""), class_cfg, cmd_convert_path, -106,
                   "malformed record: no kind of conversion");
    expect_refused(convert("3/A"), class_cfg, cmd_convert_path, -105,
                   "no conversion of the kind 3");
    expect_refused(convert("0A..B"), class_cfg, cmd_convert_path, -116,
                   "bad path (empty element): A..B");
    expect_refused(convert("0/A:0"), class_cfg, cmd_convert_path, -102, "no such instance: /A:0");
    expect_refused(convert("2A b"), class_cfg, cmd_convert_path, -116,
                   "bad path (empty element): A b");
}

TEST_F(Facts, TheInterfaceNameIsFoundInItsObject) {
    const auto name_of = [](const char *path) {
        char text[64] = "none";
        zan_cfg_get_ifname(text, sizeof text, "%s", path);
        return std::string(text);
    };
    EXPECT_EQ(name_of("/Wan:1"), "eth0.100");
    EXPECT_EQ(name_of("/Lan:1"), "lan1");
    EXPECT_EQ(name_of("/Wan:1/Name"), "internet");
    EXPECT_EQ(name_of("/Lan:2"), "none");
    expect_refused(module().call(class_cfg, cmd_ifname, "/Lan:2"), class_cfg, cmd_ifname, -101,
                   "no interface name: /Lan:2");
    expect_refused(module().call(class_cfg, cmd_ifname, "/Lan:3"), class_cfg, cmd_ifname, -102,
                   "no such instance: /Lan:3");
}

TEST_F(Facts, AConversionIsRemembered) {
    char text[] = "some text";
    EXPECT_EQ(zan_convert(5, text), 1);
    EXPECT_EQ(value("/zansim/conversions"), "1");
    EXPECT_EQ(value("/zansim/last_conversion"), "5 some text");
    expect_refused(module().call(class_cfg, cmd_convert, ""), class_cfg, cmd_convert, -106,
                   "malformed record: nothing to convert");
}

TEST_F(Facts, AttributesBelongToTheirNodeAndAreSaved) {
    EXPECT_TRUE(same_record(module().call(class_cfg, cmd_get_attr, "/sys/name"),
                            module().answer(class_cfg, cmd_get_attr, 1, std::string(1, '\0'))));
    EXPECT_EQ(cfg_setattr("ro,notify 2", "/sys/name"), 1);
    EXPECT_EQ(cfg_setattr("of the instance", "/sys/user:2"), 1);
    EXPECT_STREQ(reinterpret_cast<const char *>(cfg_getattr("/sys/name")), "ro,notify 2");
    EXPECT_STREQ(reinterpret_cast<const char *>(cfg_getattr("/sys/user:%d", 2)), "of the instance");
    EXPECT_EQ(cfg_getattr("/sys/nope"), 0);
    expect_refused(module().call(class_cfg, cmd_set_attr, "/sys/nope x"), class_cfg, cmd_set_attr,
                   -101, "no such node: /sys/nope");
    expect_refused(module().call(class_cfg, cmd_set_attr, "/sys/name"), class_cfg, cmd_set_attr,
                   -106, "malformed record: not \"PATH ATTRIBUTES\"");
    EXPECT_EQ(cfg_setattr("", "/sys/user:2"), 1); // none again
    zan_unregister("client", 0);
    serve("/tmp/zan_saved.json");
    EXPECT_STREQ(reinterpret_cast<const char *>(cfg_getattr("/sys/name")), "ro,notify 2");
    EXPECT_STREQ(reinterpret_cast<const char *>(cfg_getattr("/sys/user:2")), "");
}

TEST_F(Facts, AResetTellsWhatItChanged) {
    const auto watcher = another_module("WATCHER");
    ASSERT_EQ(cfg_setstr("attic", "/sys/name"), 1);
    ASSERT_EQ(cfg_anchor("/sys/user"), 1);
    ASSERT_EQ(cfg_del("/sys/user:2"), 1);
    watcher->call(class_notify, cmd_watch, watch_payload(0, 0, "/sys"));
    EXPECT_EQ(cfg_reset("/sys/user"), 1);
    EXPECT_EQ(value("/sys/name"), "attic");
    EXPECT_EQ(value("/sys/user#"), "4");
    EXPECT_EQ(cfg_reset("/%s", "sys"), 1);
    EXPECT_EQ(value("/sys/name"), "router");
    EXPECT_EQ(told(*watcher), "client /sys/user:5 %00 3 0 /sys\nclient /sys/user:2 %00 2 0 /sys\n"
                              "client /sys/name router 1 0 /sys\n");
    expect_refused(module().call(class_cfg, cmd_reset, "/nope"), class_cfg, cmd_reset, -101,
                   "no such node: /nope");
}

TEST_F(Facts, ApplyingIsCountedAndRefusedWhileTheManagementClientWrites) {
    EXPECT_EQ(cfg_apply_all(), 1);
    ASSERT_EQ(cfg_setint(2, "/runtime/app/tr069/config_state"), 1);
    EXPECT_EQ(cfg_apply_all(), 1);
    ASSERT_EQ(cfg_setint(1, "/runtime/app/tr069/config_state"), 1);
    // As if the client had begun between the library's look and its request.
    expect_refused(module().call(class_cfg, cmd_apply_all, ""), class_cfg, cmd_apply_all, -121,
                   "the TR-069 client is writing the configuration");
    EXPECT_EQ(cfg_apply_firewall_event(), 1);
    EXPECT_EQ(value("/zansim/applied"), "2");
    EXPECT_EQ(value("/zansim/firewall_applied"), "1");
}

class DeviceFacts : public ClientTest {
protected:
    DeviceFacts() { autostart_ = false; }
    void SetUp() override { serve(device_file()); }
};

TEST_F(DeviceFacts, FitTheExampleTree) {
    EXPECT_EQ(login("admin", "admin"), 1);
    EXPECT_EQ(login("support", "support"), 0);
    char host[] = "/InternetGatewayDevice/WANDevice:1/WANConnectionDevice:1/WANIPConnection:1";
    EXPECT_EQ(cfg_is_iphost_conn(host), 1);
    char other[] = "/InternetGatewayDevice/LANDevice:1";
    EXPECT_EQ(cfg_is_iphost_conn(other), 0);
    char name[32] = {};
    EXPECT_EQ(zan_cfg_get_ifname(name, sizeof name, "%s", host), 1);
    EXPECT_STREQ(name, "eth0.100");
    EXPECT_GT(cfg_get_hw_model(), 0);
}

} // namespace

} // namespace zan::test
