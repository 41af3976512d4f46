// SPDX-License-Identifier: MIT
//
// The requests that read and write files, and the directory they cannot leave.
#include "sim/client.h"

#include "support/sandbox.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace zan::test {

namespace {

constexpr char directory[] = "/tmp/zan_dir";
constexpr char usual_directory[] = "/tmp/zan_sim.files";

class FileRequest : public ClientTest {
protected:
    FileRequest() { autostart_ = false; }

    void SetUp() override {
        std::filesystem::remove_all(directory);
        serve(tree_file(R"({"a": 1, "b": {"c": "x y"}, "t": {"$instances": [{"n": "1"}],
                            "$template": {"n": ""}}})"),
              {"--directory", directory});
    }

    static std::string path(const std::string &name) { return directory + ('/' + name); }

    static int reload(std::string name) { return cfg_reload(name.data()); }
    static int dump(int mode, std::string name) { return cfg_dump(mode, name.data()); }
};

TEST_F(FileRequest, DumpsTheTreeAsATreeFileOrAsLines) {
    EXPECT_EQ(dump(0, "tree.json"), 1);
    EXPECT_EQ(read_file(path("tree.json")), R"({
  "a": 1,
  "b": {
    "c": "x y"
  },
  "t": {
    "$instances": [
      {
        "n": "1"
      }
    ],
    "$template": {
      "n": ""
    }
  }
}
)");
    EXPECT_EQ(dump(1, path("lines")), 1); // by its full name
    EXPECT_EQ(read_file(path("lines")), "/a=1\n/b/c=x y\n/t:1/n=1\n");
}

TEST_F(FileRequest, ReloadsATreeAndTellsWhoWatchesIt) {
    const auto watcher = another_module("WATCHER");
    watcher->call(class_notify, cmd_watch, watch_payload(0, 7, "/"));
    write_file(path("new.json"), R"({"a": 2, "b": {"c": "x y"}, "t": [{"n": "1"}, {"n": "2"}]})");
    EXPECT_EQ(reload("new.json"), 1);
    EXPECT_EQ(value("/a"), "2");
    EXPECT_EQ(told(*watcher), "client /a 2 1 7 /\nclient /t:2 %00 2 7 /\n");
}

TEST_F(FileRequest, RefusesAFileThatIsNoTreeAndKeepsItsOwn) {
    write_file(path("bad.json"), "{\"a\":\n 1,,}");
    const SizedRecord answer = module().call(class_cfg, cmd_reload, "bad.json");
    EXPECT_EQ(answer.record.result(), -123);
    EXPECT_TRUE(answer.payload().starts_with("bad.json:2:4: ")) << answer.payload();
    write_file(path("own.json"), R"({"zansim": {}})");
    expect_refused(module().call(class_cfg, cmd_reload, "own.json"), class_cfg, cmd_reload, -123,
                   "own.json: /zansim: this branch is zansim's own");
    EXPECT_EQ(value("/a"), "1");
}

TEST_F(FileRequest, SavesToTheFileThatWasChosenAndReloadsIt) {
    EXPECT_EQ(value("/zansim/configuration_file"), "config.json");
    EXPECT_EQ(zan_save_config(1, 0), 1);
    EXPECT_TRUE(file_exists(path("config.json")));
    char other[] = "other.json";
    EXPECT_EQ(cfg_setfile(other), 1);
    EXPECT_EQ(value("/zansim/configuration_file"), "other.json");
    EXPECT_EQ(cfg_setint(5, "/a"), 1);
    EXPECT_EQ(zan_save_config2(1, 0), 1);
    EXPECT_TRUE(read_file(path("other.json")).starts_with("{\n  \"a\": 5,"));
    EXPECT_EQ(cfg_setint(6, "/a"), 1);
    EXPECT_EQ(reload(""), 1);
    EXPECT_EQ(value("/a"), "5");
}

TEST_F(FileRequest, NeverLeavesItsDirectory) {
    write_file("/tmp/zan_outside", "{\"secret\": 1}");
    mkdir("/tmp/zan_elsewhere", 0755);
    write_file("/tmp/zan_elsewhere/x", "{}");
    symlink("/tmp/zan_outside", path("link").c_str());
    symlink("/tmp/zan_elsewhere", path("linked").c_str());
    symlink("x", path("inner").c_str());
    mkdir(path("sub").c_str(), 0755);
    mkfifo(path("pipe").c_str(), 0644);
    struct Case {
        std::string name;
        std::string why;
    };
    for (const Case &refused : std::vector<Case>{
             {"../zan_outside", "\"..\" in its name"},
             {"sub/../../zan_outside", "\"..\" in its name"},
             {path("../zan_outside"), "\"..\" in its name"},
             {"/tmp/zan_outside", "outside /tmp/zan_dir"},
             {"/tmp/zan_dir2/x", "outside /tmp/zan_dir"},
             {"/tmp/zan_dirx", "outside /tmp/zan_dir"},
             {"/etc/passwd", "outside /tmp/zan_dir"},
             {"link", "a symbolic link"},
             {"inner", "a symbolic link"},
             {"linked/x", "a symbolic link in its name"},
             {"/", "outside /tmp/zan_dir"},
             {directory, "outside /tmp/zan_dir"},
             {path(""), "no name"},
             {"./", "no name"},
         }) {
        for (const int cmd : {cmd_reload, cmd_dump})
            expect_refused(module().call(class_cfg, cmd, refused.name), class_cfg, cmd, -122,
                           "file refused (" + refused.why + "): " + refused.name);
    }
    expect_refused(module().call(class_cfg, cmd_reload, "pipe"), class_cfg, cmd_reload, -122,
                   "file refused (not a regular file): pipe");
    expect_refused(module().call(class_cfg, cmd_reload, "sub"), class_cfg, cmd_reload, -122,
                   "file refused (not a regular file): sub");
    expect_refused(module().call(class_cfg, cmd_set_file, "../x"), class_cfg, cmd_set_file, -122,
                   "file refused (\"..\" in its name): ../x");
    expect_refused(module().call(class_cfg, cmd_dump, ""), class_cfg, cmd_dump, -122,
                   "file refused (no name): ");
    EXPECT_EQ(read_file("/tmp/zan_outside"), "{\"secret\": 1}");
    EXPECT_EQ(read_file("/tmp/zan_elsewhere/x"), "{}");
}

TEST_F(FileRequest, SaysWhyAFileCannotBeUsed) {
    expect_refused(module().call(class_cfg, cmd_reload, "none.json"), class_cfg, cmd_reload, -123,
                   "file cannot be read (No such file or directory): none.json");
    expect_refused(module().call(class_cfg, cmd_dump, "none/x"), class_cfg, cmd_dump, -123,
                   "file cannot be reached (No such file or directory): none/x");
    mkdir(path("sub").c_str(), 0755);
    const std::string inner = "sub//./deep.json";
    EXPECT_EQ(dump(0, inner), 1);
    EXPECT_EQ(reload("sub/deep.json"), 1);
}

TEST_F(FileRequest, NeedsADirectoryThatCanBeMade) {
    const std::string tree = tree_file("{}");
    zan_unregister("client", 0);
    zansim().stop();
    write_file("/tmp/zan_no_directory", "");
    const auto expect_failure = [&](const std::string &name, const std::string &error) {
        Program program({zansim_path(), "--directory", name, tree});
        EXPECT_EQ(program.wait(), 1);
        EXPECT_NE(program.error().find("zansim: " + error + '\n'), std::string::npos)
            << program.error();
    };
    expect_failure("/tmp/zan_none/x", "/tmp/zan_none/x: cannot be made: No such file or directory");
    expect_failure("/tmp/zan_no_directory",
                   "/tmp/zan_no_directory: cannot be used: Not a directory");
    EXPECT_FALSE(file_exists("/tmp/zan_qid"));
}

TEST_F(FileRequest, PrintsASubtreeOnStandardOutput) {
    EXPECT_EQ(cfg_print(0, nullptr, "/b"), 1);
    EXPECT_EQ(cfg_print(1, "top of %s", "/"), 1);
    EXPECT_TRUE(zansim().program().read_until("top of %s\n/a=1\n"));
    EXPECT_NE(zansim().program().output().find("\n/b/c=x y\ntop"), std::string::npos);
    expect_refused(module().call(class_cfg, cmd_print, "/no"), class_cfg, cmd_print, -101,
                   "no such node: /no");
    Fields negative = module().request(class_cfg, cmd_print, "/b");
    negative.arg = -1;
    expect_refused(module().call(make_record(negative)), class_cfg, cmd_print, -105,
                   "depth -1 is negative");
}

class UsualDirectory : public ClientTest {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        ClientTest::SetUp();
    }
};

TEST_F(UsualDirectory, IsMadeWhenSomethingIsWritten) {
    EXPECT_EQ(value("/zansim/directory"), usual_directory);
    expect_refused(module().call(class_cfg, cmd_reload, "x"), class_cfg, cmd_reload, -123,
                   "file directory cannot be used (No such file or directory): /tmp/zan_sim.files");
    EXPECT_FALSE(file_exists(usual_directory));
    char name[] = "x.json";
    EXPECT_EQ(cfg_dump(0, name), 1);
    EXPECT_TRUE(file_exists(std::string(usual_directory) + "/x.json"));
}

TEST_F(UsualDirectory, IsNotUsedWhenItIsALink) {
    mkdir("/tmp/zan_elsewhere", 0755);
    ASSERT_EQ(symlink("/tmp/zan_elsewhere", usual_directory), 0);
    const SizedRecord answer = module().call(class_cfg, cmd_dump, "x");
    EXPECT_EQ(answer.record.result(), -123) << answer.payload();
    EXPECT_FALSE(file_exists("/tmp/zan_elsewhere/x"));
}

} // namespace

} // namespace zan::test
