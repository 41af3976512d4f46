// SPDX-License-Identifier: MIT
// The other families of requests, byte for byte.
#include "support/commands.h"
#include "support/daemon.h"
#include "support/raw.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <zan.hpp>

#include <cstring>
#include <string>

namespace zan::test {
namespace {

std::string padded(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

std::string action_bytes(int code, int wait, int param, const std::string &name) {
    const std::int32_t words[] = {code, wait, param};
    return std::string(reinterpret_cast<const char *>(words), sizeof words) + padded(name, 1024);
}

class HppRequest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(module);
        daemon.forget_records();
    }

    // The only record sent since the last look, but for its time, which is checked apart.
    testing::AssertionResult sent(Fields expected, bool timed = false) {
        const std::vector<SizedRecord> records = daemon.wait_for_records(1);
        daemon.forget_records();
        const RawRecord &record = records.front().record;
        expected.mtype = module.queue();
        expected.src = "probe";
        expected.pid = getpid();
        if (timed) {
            if (testing::AssertionResult recent = is_recent(record.word(at::time)); !recent)
                return recent;
            expected.time = record.word(at::time);
        }
        return same_record(records.front(), expected);
    }

    static Fields cfg(int cmd, std::string payload, int arg = 0) {
        return {.type = class_cfg,
                .cmd = cmd,
                .dst = "ZAN_CFG",
                .arg = arg,
                .payload = std::move(payload)};
    }
    static Fields action(int code, int wait, int param, const std::string &name) {
        return {.type = class_action,
                .cmd = code,
                .dst = "ZAN_FAD",
                .payload = action_bytes(code, wait, param, name)};
    }
    static Fields command_line(const std::string &line) {
        return {.type = class_control, .cmd = 0, .dst = "ZAN", .payload = padded(line, 1025)};
    }

    ScriptedDaemon daemon;
    Module module{"probe"};
};

TEST_F(HppRequest, FilesOfTheTree) {
    EXPECT_TRUE(module.reload("new.json"));
    EXPECT_TRUE(sent(cfg(cmd_reload, "new.json")));
    EXPECT_TRUE(module.set_file("new.json"));
    EXPECT_TRUE(sent(cfg(cmd_set_file, "new.json")));
    EXPECT_TRUE(module.dump(3, "dump.json"));
    EXPECT_TRUE(sent(cfg(cmd_dump, "dump.json", 3)));
    EXPECT_TRUE(module.print(2, "/sys"));
    EXPECT_TRUE(sent(cfg(cmd_print, "/sys", 2)));
    EXPECT_TRUE(module.print(2, "/sys", "a heading"));
    EXPECT_TRUE(sent(cfg(cmd_print, "/sys a heading", 2)));
}

TEST_F(HppRequest, Login) {
    daemon.on(class_cfg, cmd_login, answer("2"));
    EXPECT_EQ(module.login({"a", "b", "c", "d"}).value_or(0), 2);
    EXPECT_TRUE(sent(cfg(cmd_login, "a\nb\nc\nd")));
    EXPECT_EQ(module.login({"a", "b", "", "", "e"}).value_or(0), 2);
    EXPECT_TRUE(sent(cfg(cmd_login, "a\nb\n\n\ne")));
    EXPECT_TRUE(module.login({"a", "b", "c"}).failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.login({"a\nb", "", "c", "d"}).failed_with(Failure::bad_argument));
    EXPECT_TRUE(
        module.login({std::string(1020, 'a'), "", "", ""}).failed_with(Failure::bad_argument));
}

TEST_F(HppRequest, Conversions) {
    EXPECT_TRUE(module.convert(5, "text"));
    EXPECT_TRUE(sent(cfg(cmd_convert, "text", 5)));
    daemon.on(class_cfg, cmd_convert_path, answer("A.B"));
    EXPECT_EQ(module.convert_path(0, "/A/B").value_or("?"), "A.B");
    EXPECT_TRUE(sent(cfg(cmd_convert_path, "0/A/B")));
    EXPECT_TRUE(module.convert_path(10, "/A").failed_with(Failure::bad_argument));
    daemon.on(class_cfg, cmd_ifname, answer("br0"));
    EXPECT_EQ(module.interface_name("/A/B").value_or("?"), "br0");
    EXPECT_TRUE(sent(cfg(cmd_ifname, "/A/B")));
    daemon.on(class_cfg, cmd_pid, answer("4711"));
    EXPECT_EQ(module.module_pid("wlan").value_or(0), 4711);
    EXPECT_TRUE(sent(cfg(cmd_pid, "wlan")));
}

TEST_F(HppRequest, Apply) {
    daemon.on(class_cfg, cmd_get, answer("0"));
    EXPECT_TRUE(module.apply_all());
    const std::vector<SizedRecord> records = daemon.wait_for_records(2);
    EXPECT_EQ(records[0].payload(), "/runtime/app/tr069/config_state");
    EXPECT_EQ(records[1].record.cmd(), cmd_apply_all);
    EXPECT_EQ(records[1].msgsz, raw_header_size);
    daemon.forget_records();
    EXPECT_TRUE(module.apply_firewall());
    EXPECT_TRUE(sent(cfg(cmd_apply_firewall, "")));
}

TEST_F(HppRequest, ApplyIsHeldBackWhileConfigurationIsWritten) {
    daemon.on(class_cfg, cmd_get, answer("1"));
    EXPECT_TRUE(module.apply_all().failed_with(Failure::refused));
    EXPECT_EQ(daemon.records().size(), 1U);
}

TEST_F(HppRequest, ActionsWaitForTheirAnswer) {
    EXPECT_TRUE(module.upgrade_firmware("image.bin"));
    EXPECT_TRUE(sent(action(2, 1, 0, "image.bin")));
    EXPECT_TRUE(module.upgrade_config("c.json"));
    EXPECT_TRUE(sent(action(3, 1, 0, "c.json")));
    EXPECT_TRUE(module.save_config());
    EXPECT_TRUE(sent(action(4, 1, 0, "")));
    EXPECT_TRUE(module.factory_reset());
    EXPECT_TRUE(sent(action(5, 1, 0, "")));
    EXPECT_TRUE(module.backup_config("b.json"));
    EXPECT_TRUE(sent(action(6, 1, 0, "b.json")));
    EXPECT_TRUE(module.run_shell("uptime"));
    EXPECT_TRUE(sent(action(7, 1, 0, "uptime")));
    EXPECT_TRUE(module.action(ZAN_ACTION_BACKUP_OLD_CONFIG, -1, "old"));
    EXPECT_TRUE(sent(action(16, 1, 0, "old")));
    daemon.on(class_action, 4, negative(-123, "disk full"));
    const Result<void> saved = module.save_config();
    ASSERT_TRUE(saved.failed_with(Failure::refused));
    EXPECT_EQ(saved.error().message(), "refused with -123: disk full");
}

TEST_F(HppRequest, ActionsMayBeStartedWithoutWaiting) {
    daemon.on(class_action, 15, never());
    EXPECT_TRUE(module.save_log());
    EXPECT_TRUE(sent(action(15, 0, 0, "")));
    daemon.on(class_action, 9, never());
    EXPECT_TRUE(module.start_action(ZAN_ACTION_REBOOT, 2));
    EXPECT_TRUE(sent(action(9, 0, 2, "")));
}

TEST_F(HppRequest, ActionsWithBadArgumentsAreNotSent) {
    EXPECT_TRUE(module.upgrade_firmware("").failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.run_shell(std::string(512, 'x')).failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.backup_config(std::string(1024, 'x')).failed_with(Failure::bad_argument));
    EXPECT_TRUE(daemon.records().empty());
}

TEST_F(HppRequest, EventResultIsReported) {
    daemon.on(class_action, 1, never());
    EXPECT_TRUE(module.report_event_result(17, -3));
    EXPECT_TRUE(sent({.type = class_action, .cmd = 1, .payload = action_bytes(17, 0, 0, "-3")}));
}

TEST_F(HppRequest, CommandLinesTravelWithTheirWholeLength) {
    daemon.on(class_control, 0, never());
    EXPECT_TRUE(module.control("ifconfig br0"));
    EXPECT_TRUE(sent(command_line("ifconfig br0"), true));
    EXPECT_TRUE(module.firewall({{'f', "add"}, {'p', "80"}, {'a', "10.0.0.1"}}));
    EXPECT_TRUE(sent(command_line("firewall_cntl -f add -p 80 -a 10.0.0.1"), true));
    EXPECT_TRUE(module.firewall_bridge("1", "br0", -1));
    EXPECT_TRUE(sent(command_line("firewall_cntl -b -p 1 -i br0 -m -1"), true));
    EXPECT_TRUE(module.control(std::string(1025, 'x')).failed_with(Failure::bad_argument));
}

TEST_F(HppRequest, RemoteManagement) {
    daemon.on(class_cwmp, 6, {{.payload = std::string("a\0b", 3), .arg = 1}});
    const Result<CwmpAnswer> answered = module.cwmp(6, std::string_view("q\0", 2));
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->data, std::string("a\0b", 3));
    EXPECT_TRUE(answered->arg_is_one);
    EXPECT_TRUE(
        sent({.type = class_cwmp, .cmd = 6, .dst = "ZAN_CWMP", .payload = std::string("q\0", 2)}));
    EXPECT_TRUE(module.cwmp(6, std::string(35001, 'x')).failed_with(Failure::bad_argument));
}

TEST_F(HppRequest, Messages) {
    daemon.on(class_message, cmd_send, never());
    EXPECT_TRUE(module.send("wlan", "scan"));
    EXPECT_TRUE(
        sent({.type = class_message, .cmd = cmd_send, .dst = "wlan", .payload = "scan"}, true));
    daemon.on(class_message, cmd_send_with_ack, {{.cmd = cmd_ack}});
    EXPECT_TRUE(module.send_acknowledged("wlan", std::string("a\0b", 3)));
    EXPECT_TRUE(sent({.type = class_message,
                      .cmd = cmd_send_with_ack,
                      .dst = "wlan",
                      .payload = std::string("a\0b", 3)},
                     true));
    daemon.on(class_broadcast, cmd_send_all, {{.cmd = cmd_ack}});
    EXPECT_TRUE(module.broadcast("all"));
    EXPECT_TRUE(sent({.type = class_broadcast, .cmd = cmd_send_all, .payload = "all"}, true));
    EXPECT_TRUE(module.send("wlan", std::string(1025, 'x')).failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.send(std::string(32, 'x'), "").failed_with(Failure::bad_argument));
}

TEST_F(HppRequest, MeshGate) {
    daemon.on(class_cfg, cmd_get, answer("0"));
    daemon.once(class_cfg, cmd_get, answer("Agent"));
    daemon.once(class_cfg, cmd_get, answer("1"));
    EXPECT_EQ(module.mesh_ready().value_or(false), true);
    daemon.once(class_cfg, cmd_get, answer("Controller"));
    daemon.once(class_cfg, cmd_get, answer("1"));
    EXPECT_EQ(module.mesh_ready().value_or(true), false);
}

TEST_F(HppRequest, AnyRequest) {
    daemon.on(class_cfg, 30, answer("x"));
    const Result<Answer> answered = module.request({class_cfg, 30, "ZAN_CFG", "y"});
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->data, "x");
    EXPECT_TRUE(sent(cfg(30, "y")));
}

} // namespace
} // namespace zan::test
