// SPDX-License-Identifier: MIT
//
// The file-and-action requests.
#include "sim/client.h"

#include "support/patience.h"

#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace zan::test {

namespace {

constexpr char directory[] = "/tmp/zan_dir";
constexpr char tree[] = R"({
  "name": "router",
  "wlan": {"WLANConfiguration": [{"SSID": "home"}, {"SSID": "guest"}]},
  "lan": [{"WLANConfiguration": {"Channel": 6}, "Enable": true}]
})";

class ActionRequest : public ClientTest {
protected:
    ActionRequest() { autostart_ = false; }
    void SetUp() override { act({}); }

    void act(std::vector<std::string> options) {
        std::filesystem::remove_all(directory);
        options.insert(options.end(), {"--directory", directory});
        serve(tree_file(tree), options);
    }

    static std::string path(const std::string &name) { return directory + ('/' + name); }
    static bool nothing_waits() { return queue_length(g_msq_qid) == 0; }
};

TEST_F(ActionRequest, IsAnsweredWhenSomebodyWaitsAndOnlyThen) {
    EXPECT_TRUE(same_record(module().call(class_action, 4, action_payload(4, 1, 0, "")),
                            module().answer(class_action, 4, 1)));
    EXPECT_EQ(zan_save_config(0, 0), 1);
    EXPECT_EQ(zan_save_log(), 1);
    EXPECT_EQ(zan_reboot(0), 1);
    EXPECT_EQ(zan_run_shell(0, 0, "true"), 1);
    EXPECT_EQ(zan_upgrade_config(0, 0, "none.json"), 1);
    EXPECT_EQ(zan_report_event_result(17, 1), 0);
    EXPECT_EQ(value("/zansim/actions"), "6");
    EXPECT_TRUE(nothing_waits());
}

TEST_F(ActionRequest, IsRefusedWhenItIsNoneAndAnsweredAsNobodyKnowsWhoWaits) {
    const std::string good = action_payload(4, 0, 0, "");
    for (const std::string &bad : {std::string(), good.substr(0, 1035), good + '\0'})
        expect_refused(module().call(class_action, 4, bad), class_action, 4, -106,
                       "malformed record: an action has 1036 bytes");
    expect_refused(module().call(class_action, 4, action_payload(4, 0, 0, std::string(1024, 'x'))),
                   class_action, 4, -106,
                   "malformed record: the name of an action is not terminated");
    expect_refused(module().call(class_action, 8, good), class_action, 8, -107,
                   "unknown command 8 of class ACTION");
}

TEST_F(ActionRequest, UpgradesTheFirmwareInNameOnly) {
    EXPECT_EQ(zan_upgrade_firmware(1, 0, "image.bin"), -123);
    EXPECT_EQ(zan_upgrade_firmware(1, 0, "../image.bin"), -122);
    write_file(path("image.bin"), "");
    EXPECT_EQ(zan_upgrade_firmware(1, 0, "image.bin"), -123);
    EXPECT_EQ(value("/zansim/firmware"), "");
    write_file(path("image.bin"), std::string("\x7f"
                                              "ELF\0",
                                              5));
    EXPECT_EQ(zan_upgrade_firmware(1, 0, "image.bin"), 1);
    EXPECT_EQ(value("/zansim/firmware"), "image.bin");
    EXPECT_EQ(value("/zansim/last_action"), "upgrade-firmware image.bin");
}

TEST_F(ActionRequest, UpgradesTheConfigurationFromAFile) {
    write_file(path("new.json"), R"({"name": "attic"})");
    EXPECT_EQ(zan_upgrade_config(1, 0, "new.json"), 1);
    EXPECT_EQ(value("/name"), "attic");
    write_file(path("bad.json"), "[");
    EXPECT_EQ(zan_upgrade_config(1, 0, "bad.json"), -123);
    EXPECT_EQ(value("/name"), "attic");
}

TEST_F(ActionRequest, BacksUpTheTreeOrTheOneSavedLast) {
    EXPECT_EQ(zan_backup_old_config(1, 0, nullptr), 1); // as zansim started
    ASSERT_EQ(cfg_setstr("saved", "/name"), 1);
    EXPECT_EQ(zan_save_config(1, 0), 1);
    ASSERT_EQ(cfg_setstr("newest", "/name"), 1);
    EXPECT_EQ(zan_backup_config(1, 0, nullptr), 1);
    EXPECT_EQ(zan_backup_config(1, 0, "mine.json"), 1);
    EXPECT_EQ(zan_backup_old_config(1, 0, "saved.json"), 1);
    const auto begins = [](const std::string &file, const std::string &name) {
        EXPECT_TRUE(read_file(path(file)).starts_with("{\n  \"name\": \"" + name + "\"")) << file;
    };
    begins("backup_old.json", "router");
    begins("backup.json", "newest");
    begins("mine.json", "newest");
    begins("saved.json", "saved");
    EXPECT_EQ(zan_backup_config(1, 0, "/tmp/zan_backup.json"), -122);
    EXPECT_FALSE(file_exists("/tmp/zan_backup.json"));
}

TEST_F(ActionRequest, ResetsTheTreeAndTellsWhoWatches) {
    const auto watcher = another_module("WATCHER");
    ASSERT_EQ(cfg_setstr("attic", "/name"), 1);
    ASSERT_EQ(cfg_setstr("mine", "/wlan/WLANConfiguration:1/SSID"), 1);
    ASSERT_EQ(cfg_setint(11, "/lan:1/WLANConfiguration/Channel"), 1);
    ASSERT_EQ(cfg_setint(0, "/lan:1/Enable"), 1);
    ASSERT_EQ(cfg_del("/wlan/WLANConfiguration:2"), 1);
    watcher->call(class_notify, cmd_watch, watch_payload(0, 0, "/"));
    EXPECT_EQ(zan_factory_reset_wo_wifi(1, 0, nullptr), 1);
    EXPECT_EQ(told(*watcher), "client /name router 1 0 /\nclient /lan:1/Enable 1 1 0 /\n");
    EXPECT_EQ(zan_factory_reset(1, 0, nullptr), 1);
    EXPECT_EQ(told(*watcher), "client /wlan/WLANConfiguration:1/SSID home 1 0 /\n"
                              "client /wlan/WLANConfiguration:2 %00 2 0 /\n"
                              "client /lan:1/WLANConfiguration/Channel 6 1 0 /\n");
}

TEST_F(ActionRequest, RemembersRebootsAndShellCommandsAndExecutesNeither) {
    EXPECT_EQ(zan_run_shell(1, 0, "touch %s", "/tmp/zan_touched"), 1);
    EXPECT_EQ(zan_reboot(1), 1);
    EXPECT_EQ(value("/zansim/shell_commands"), "1");
    EXPECT_EQ(value("/zansim/last_shell_command"), "touch /tmp/zan_touched");
    EXPECT_EQ(value("/zansim/reboots"), "1");
    EXPECT_EQ(value("/zansim/last_action"), "reboot");
    EXPECT_EQ(value("/name"), "router") << "it serves on";
    EXPECT_FALSE(file_exists("/tmp/zan_touched"));
}

TEST_F(ActionRequest, SavesTheLogOfTheActions) {
    EXPECT_EQ(zan_run_shell(1, 0, "a\nb"), 1);
    EXPECT_EQ(module().call(class_action, 15, action_payload(15, 1, 0, "")).record.result(), 1);
    const std::string log = read_file(path("actions.log"));
    EXPECT_NE(log.find(" client shell a\\nb\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" TESTER save-log\n"), std::string::npos) << log;
}

TEST_F(ActionRequest, IsShownInTheTrace) {
    zan_unregister("client", 0);
    act({"--trace"});
    module().call(class_action, 9, action_payload(9, 1, -1, ""));
    module().call(class_action, 7, action_payload(7, 5, 0, "ls -l"));
    for (const char *const line :
         {" in  ACTION reboot TESTER -> ZAN_FAD ", " len=1036 code=9 wait=1 param=-1 \"\"\n",
          " out ACTION reboot ZAN_FAD -> TESTER ", " in  ACTION shell TESTER -> ZAN_FAD ",
          " code=7 wait=5 param=0 \"ls -l\"\n"})
        EXPECT_TRUE(zansim().program().read_until(line)) << line;
}

class ShellCommand : public ActionRequest {
protected:
    void SetUp() override { act({"--allow-shell"}); }
};

TEST_F(ShellCommand, IsExecutedWhenItIsAllowed) {
    EXPECT_EQ(zan_run_shell(1, 0, "echo done >%s", path("out").c_str()), 1);
    EXPECT_EQ(read_file(path("out")), "done\n");
    EXPECT_EQ(zan_run_shell(0, 0, "echo again >%s", path("unawaited").c_str()), 1);
    EXPECT_TRUE(eventually([] { return file_exists(path("unawaited")); }));
    EXPECT_TRUE(nothing_waits());
}

TEST_F(ShellCommand, ThatFailsIsRefused) {
    const auto run = [this](const char *line) {
        return module().call(class_action, 7, action_payload(7, 1, 0, line));
    };
    expect_refused(run("exit 3"), class_action, 7, -124, "shell command: exit status 3");
    expect_refused(run("kill -9 $$"), class_action, 7, -124, "shell command: ended by signal 9");
    expect_refused(run("/none 2>/dev/null"), class_action, 7, -124,
                   "shell command: exit status 127");
}

TEST_F(ShellCommand, RunsBesideTheRequestsOfOthers) {
    mkfifo(path("gate").c_str(), 0644);
    const auto other = another_module("OTHER");
    other->send(other->request(class_action, 7, action_payload(7, 1, 0, "cat " + path("gate"))));
    EXPECT_EQ(value("/zansim/shell_commands"), "1"); // it runs, and zansim answers
    EXPECT_EQ(queue_length(other->queue()), 0);
    write_file(path("gate"), "go");
    EXPECT_EQ(await_record(other->queue(), class_action).record.result(), 1);
}

TEST_F(ShellCommand, IsOneOfSixteenAtMost) {
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(zan_run_shell(0, 0, "sleep 1000"), 1);
    expect_refused(module().call(class_action, 7, action_payload(7, 1, 0, "true")), class_action, 7,
                   -124, "shell command: 16 are running already");
}

TEST_F(ShellCommand, EndsWithZansimAndSoDoesWhatItStarted) {
    const std::string file = path("pid");
    unlink(file.c_str());
    EXPECT_EQ(zan_run_shell(0, 0, "sleep 1000 & echo $! >%s.new; mv %s.new %s; wait", file.c_str(),
                            file.c_str(), file.c_str()),
              1);
    ASSERT_TRUE(eventually([&] { return file_exists(file); }));
    const pid_t pid = std::stoi(read_file(file));
    EXPECT_EQ(zansim().stop(), 0);
    // Nobody may have collected it yet.
    EXPECT_TRUE(eventually([&] {
        if (kill(pid, 0) != 0)
            return true;
        const std::string state = read_file("/proc/" + std::to_string(pid) + "/stat");
        return state.find(") Z ") != std::string::npos;
    }));
}

} // namespace

} // namespace zan::test
