// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"

#include <sys/stat.h>

namespace zan::test {

namespace {

constexpr char saved_file[] = "/tmp/zan_saved.json";
constexpr char tree[] = R"({
  "name": "router",
  "user": {
    "$instances": [
      {
        "x": 1
      },
      {
        "x": 2
      }
    ],
    "$template": {
      "x": 0
    }
  }
}
)";

class Save : public ZansimTest {
protected:
    Save() { autostart_ = false; }

    void start_saving() { start(tree_file(tree), {"--save", saved_file}); }
};

TEST_F(Save, WritesNothingUnlessAsked) {
    start(tree_file(tree));
    module().set("/name", "modem");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(read_file("/tmp/zan_tree.json"), tree);
    EXPECT_FALSE(file_exists(saved_file));
}

TEST_F(Save, WritesNothingWhileNothingChanges) {
    start_saving();
    module().set("/name", "router");
    module().get("/name");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_FALSE(file_exists(saved_file));
}

TEST_F(Save, WritesChangesWhileItServes) {
    start_saving();
    module().set("/name", "modem");
    EXPECT_TRUE(eventually([] { return file_exists(saved_file); }));
    EXPECT_NE(read_file(saved_file).find("\"name\": \"modem\""), std::string::npos);
    module().set("/name", "switch");
    EXPECT_TRUE(eventually(
        [] { return read_file(saved_file).find("\"name\": \"switch\"") != std::string::npos; }));
}

TEST_F(Save, WritesTheLastChangeAtTheEnd) {
    start_saving();
    module().set("/name", "modem");
    EXPECT_TRUE(eventually([] { return file_exists(saved_file); }));
    module().set("/name", "switch"); // within the period of the first
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_NE(read_file(saved_file).find("\"name\": \"switch\""), std::string::npos);
}

TEST_F(Save, MayOverwriteTheTreeItRead) {
    start(tree_file(tree), {"--save", "/tmp/zan_tree.json"});
    module().set("/name", "modem");
    start("/tmp/zan_tree.json", {"--save", "/tmp/zan_tree.json"});
    expect_value("/name", "modem");
}

TEST_F(Save, WritesBytesThatAreNoTextSoThatTheyFitAgain) {
    start(tree_file(R"({"name": {"$value": "", "$max": 4}})"), {"--save", saved_file});
    EXPECT_EQ(module().set("/name", "\xff\xc3\xa4\x80").record.result(), 1);
    start(saved_file);
    expect_value("/name", "?\xc3\xa4?");
}

TEST_F(Save, KeepsInstanceNumbers) {
    start_saving();
    module().call(class_cfg, cmd_delete, "/user:1");
    start(saved_file);
    expect_value("/user#", "1");
    expect_value("/user:2/x", "2");
    EXPECT_EQ(module().call(class_cfg, cmd_anchor, "/user").record.result(), 1);
    expect_value("/user:1/x", "0");
}

TEST_F(Save, TellsOnceThatItCannotAndServesOn) {
    start(tree_file(tree), {"--save", "/tmp/zan_none/saved.json"});
    module().set("/name", "modem");
    const std::string line = "zansim: /tmp/zan_none/saved.json: cannot be written: "
                             "No such file or directory\n";
    EXPECT_TRUE(zansim().program().read_error_until(line));
    expect_value("/name", "modem");
    module().set("/name", "switch");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), line);
}

TEST_F(Save, CatchesUpOnceItCan) {
    start(tree_file(tree), {"--save", "/tmp/zan_later/saved.json"});
    module().set("/name", "modem");
    EXPECT_TRUE(zansim().program().read_error_until("cannot be written"));
    mkdir("/tmp/zan_later", 0755);
    EXPECT_TRUE(eventually([] { return file_exists("/tmp/zan_later/saved.json"); }));
}

} // namespace

} // namespace zan::test
