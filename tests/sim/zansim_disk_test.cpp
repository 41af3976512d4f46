// SPDX-License-Identifier: MIT
//
// Files of modules on a disk that takes its time.
#include "sim/zansim.h"

#include "support/fsync_gate.h"
#include "support/patience.h"
#include "support/sandbox.h"

#include <csignal>
#include <filesystem>

namespace zan::test {

namespace {

constexpr char directory[] = "/tmp/zan_dir";
constexpr char configuration[] = "/tmp/zan_dir/config.json";

constexpr int upgrade_config = 3;
constexpr int save_config = 4;
constexpr int back_up_saved = 16;

class Disk : public ZansimTest {
protected:
    Disk() { autostart_ = false; }

    void SetUp() override {
        ZAN_SKIP_WITH_REASON(gate.why_none());
        std::filesystem::remove_all(directory);
        start(tree_file(R"({"a": 1})"), {"--directory", directory});
    }

    void TearDown() override {
        gate.open();
        ZansimTest::TearDown();
    }

    static void ask(const RawModule &module, int cmd, const std::string &name = "", int wait = 1) {
        module.send(module.request(class_action, cmd, action_payload(cmd, wait, 0, name)));
    }

    static bool is_answered(const RawModule &module) { return queue_length(module.queue()) != 0; }

    static void expect_done(const RawModule &module, int cmd) {
        EXPECT_TRUE(same_record(await_record(module.queue(), class_action),
                                module.answer(class_action, cmd, 1)));
    }

    FsyncGate gate;
};

TEST_F(Disk, HoldsUpNobodyButWhoAskedForIt) {
    const auto other = another_module("OTHER");
    gate.close();
    ask(module(), save_config);
    ASSERT_TRUE(gate.await_caller());
    EXPECT_EQ(other->get("/a").payload(), "1");
    EXPECT_EQ(other->set("/a", "2").record.result(), 1);
    EXPECT_FALSE(is_answered(module()));
    EXPECT_FALSE(file_exists(configuration));
    gate.open();
    expect_done(module(), save_config);
    EXPECT_EQ(read_file(configuration), "{\n  \"a\": 1\n}\n");
}

TEST_F(Disk, KeepsTheOrderOfWhatIsAskedOfIt) {
    const auto other = another_module("OTHER");
    gate.close();
    ask(module(), save_config);
    ASSERT_TRUE(gate.await_caller());
    other->set("/a", "2");
    ask(*other, save_config);
    other->set("/a", "3");
    ask(module(), back_up_saved, "old.json");
    ask(*other, upgrade_config, "config.json");
    EXPECT_EQ(other->get("/a").payload(), "3");
    EXPECT_FALSE(is_answered(module()) || is_answered(*other));
    gate.open();
    expect_done(module(), save_config);
    expect_done(*other, save_config);
    expect_done(module(), back_up_saved);
    expect_done(*other, upgrade_config);
    for (const char *const file : {configuration, "/tmp/zan_dir/old.json"})
        EXPECT_EQ(read_file(file), "{\n  \"a\": 2\n}\n") << file;
    expect_value("/a", "2");
}

TEST_F(Disk, TakesNoMoreThanSoMuch) {
    gate.close();
    ask(module(), save_config, "", 0);
    ASSERT_TRUE(gate.await_caller());
    for (int i = 0; i < 64; ++i)
        ask(module(), save_config, "", 0);
    ask(module(), save_config);
    expect_refused(await_record(module().queue(), class_action), class_action, save_config, -123,
                   "already 64 requests wait for the disk");
    gate.open();
    EXPECT_TRUE(eventually([] { return file_exists(configuration); }));
}

TEST_F(Disk, HasEverythingWhenZansimEnds) {
    gate.close();
    ask(module(), save_config, "", 0);
    ASSERT_TRUE(gate.await_caller());
    ask(module(), save_config);
    EXPECT_EQ(module().get("/a").payload(), "1"); // both are taken
    zansim().program().signal(SIGTERM);
    gate.open();
    EXPECT_EQ(zansim().program().wait(), 0);
    expect_done(module(), save_config);
    EXPECT_TRUE(file_exists(configuration));
}

} // namespace

} // namespace zan::test
