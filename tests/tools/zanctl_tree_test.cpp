// SPDX-License-Identifier: MIT
//
// Commands on whole subtrees, and batches, with zansim.
#include "with_zansim.h"

#include "support/sandbox.h"

#include <cstdlib>
#include <filesystem>

namespace zan::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

const std::string users = "/tmp/users.conf";

class ZanctlTree : public WithZansim {
protected:
    static Ended with_input(const std::vector<std::string> &arguments, const std::string &input) {
        Program program(zanctl_command(arguments), {.input = input});
        const int status = program.wait();
        return {status, program.output(), program.error()};
    }
    // Runs zanctl with --json and its output through jq.
    static std::string jq(const std::string &filter, std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        Program program(script("\"$@\" | jq -c '" + filter + "'", arguments), {.host = true});
        EXPECT_EQ(program.wait(), 0) << program.error();
        EXPECT_EQ(program.error(), "");
        return program.output();
    }
    static std::vector<std::string> dumps() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::recursive_directory_iterator("/tmp"))
            if (entry.path().extension() == ".tree")
                names.push_back(entry.path());
        return names;
    }
};

// ---- ls and tree

TEST_F(ZanctlTree, LsListsOneLevel) {
    EXPECT_EQ(zanctl({"ls", "/sys/user"}), "user:1/\nuser:2/\nuser:3/\n");
    EXPECT_EQ(zanctl({"ls", "/sys/user:2"}), "name\npassword\nlevel\nenabled\nremote_access\n");
    EXPECT_EQ(zanctl({"ls", "/sys/login/"}), "max_attempts\nlock_seconds\nsession_seconds\n");
    EXPECT_THAT(zanctl({"ls"}), HasSubstr("sys/\n"));
    EXPECT_EQ(zanctl({"ls", "/sys/hostname"}), "hostname\n");
    EXPECT_THAT(dumps(), IsEmpty());
}

TEST_F(ZanctlTree, LsMarksATableWithoutInstances) {
    zanctl({"del", "/sys/user:1", "/sys/user:2", "/sys/user:3"});
    EXPECT_THAT(zanctl({"ls", "/sys"}), HasSubstr("\nuser:#/\n"));
    EXPECT_EQ(zanctl({"ls", "/sys/user"}), "");
}

TEST_F(ZanctlTree, TreePrintsValuesDownToADepth) {
    EXPECT_EQ(zanctl({"tree", "/sys/login"}), "/sys/login\n"
                                              "  max_attempts = 5\n"
                                              "  lock_seconds = 60\n"
                                              "  session_seconds = 900\n");
    EXPECT_EQ(zanctl({"tree", "--depth", "0", "/sys/user"}),
              "/sys/user:1\n/sys/user:2\n/sys/user:3\n");
    EXPECT_THAT(zanctl({"tree", "--depth", "1"}), Not(HasSubstr("hostname")));
    EXPECT_THAT(zanctl({"tree", "--depth", "2"}), HasSubstr("\n    hostname = xr500\n"));
}

TEST_F(ZanctlTree, ListsValuesThatAreNotUtf8Exactly) {
    zanctl({"set", "/sys/hostname", "a\xff?"});
    EXPECT_EQ(zanctl({"export", "/sys/hostname"}), "/sys/hostname=a\xff?\n");
}

TEST_F(ZanctlTree, ListsNodesOfASchema) {
    write_file("/tmp/schema", "# comment\n/sys/hostname\n/sys/user:1/name=x\n/sys/none=1\n");
    zanctl({"del", "/sys/user:1"});
    EXPECT_EQ(zanctl({"tree", "--tree", "/tmp/schema"}), "/\n"
                                                         "  sys/\n"
                                                         "    hostname = xr500\n"
                                                         "    user:2/\n"
                                                         "      name = user\n"
                                                         "    user:3/\n"
                                                         "      name = support\n"
                                                         "    none\n");
    EXPECT_EQ(zanctl({"export", "--tree", ZAN_TEST_TREE, "/sys/user:2"}),
              zanctl({"export", "/sys/user:2"}));
}

TEST_F(ZanctlTree, ReportsWhatItCannotList) {
    Ended ended = run_zanctl({"ls", "/sys/nope"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: /sys/nope: no such node\n");
    ended = run_zanctl({"ls", "--tree", "/tmp/none"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: /tmp/none: cannot read it: No such file or directory\n");
    for (const auto &[text, error] : {std::pair("{\"a\":", "not valid JSON"),
                                      std::pair("/a\nb=1\n", "line 2 is not PATH=VALUE: b=1")}) {
        write_file("/tmp/schema", text);
        ended = run_zanctl({"ls", "--tree", "/tmp/schema"});
        EXPECT_EQ(ended.status, exit_refused);
        EXPECT_EQ(ended.error, std::string("zanctl: /tmp/schema: ") + error + "\n");
    }
}

// A daemon that refuses to dump, or writes nothing.
TEST_F(ZanctlTest, ListingExplainsWhatItNeeds) {
    const std::string advice =
        " (zanctl lists nodes from a dump of the daemon's; give a schema with --tree FILE)";
    daemon.on(class_cfg, 1, negative(-101, "no such node: /zansim/directory"));
    daemon.on(class_cfg, 5, negative(-107, "unknown command"));
    Ended ended = run({"ls"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: /: cannot list: unknown command" + advice + " (-107)\n");
    daemon.on(class_cfg, 5, answer(""));
    ended = run({"ls"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_THAT(ended.error,
                MatchesRegex("zanctl: /: cannot list: the daemon's dump /tmp/zanctl-.{6}/"
                             "zanctl-[0-9]+.tree cannot be read .*\n"));
    for (const auto &entry : std::filesystem::directory_iterator("/tmp"))
        EXPECT_THAT(entry.path().filename().string(), Not(StartsWith("zanctl-")));
}

// ---- export, import and diff

TEST_F(ZanctlTree, ExportAndImportRestoreASubtree) {
    zanctl({"set", "/sys/user:1/name", "two words\\\t="});
    const std::string exported = zanctl({"export", "/sys/user"});
    EXPECT_THAT(exported, StartsWith("/sys/user:1/name=two words\\x5C\\x09=\n"
                                     "/sys/user:1/password=admin\n"));
    write_file(users, exported);
    zanctl({"set", "/sys/user:1/name", "other"});
    zanctl({"del", "/sys/user:2"});
    EXPECT_EQ(zanctl({"import", users}), "4 written, 11 unchanged, 0 refused, 1 instance added\n");
    EXPECT_EQ(zanctl({"export", "/sys/user"}), exported);
    EXPECT_EQ(with_input({"import", "-"}, exported).output,
              "0 written, 15 unchanged, 0 refused, 0 instances added\n");
}

TEST_F(ZanctlTree, ExportLeavesOutReadOnlyValues) {
    EXPECT_EQ(zanctl({"export", "/sys/config_version"}), "");
    EXPECT_EQ(zanctl({"export", "--all", "/sys/config_version"}), "/sys/config_version=2026.1\n");
}

TEST_F(ZanctlTree, ImportContinuesAfterARefusal) {
    const Ended ended = with_input(
        {"import", "-"}, "/sys/config_version=1\n/sys/nope=1\n\n# comment\n/sys/hostname=attic\n");
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "1 written, 0 unchanged, 2 refused, 0 instances added\n");
    EXPECT_EQ(ended.error, "zanctl: /sys/config_version: read-only (-103)\n"
                           "zanctl: /sys/nope: no such node (-101)\n");
    EXPECT_EQ(zanctl({"get", "/sys/hostname"}), "attic\n");
}

TEST_F(ZanctlTree, ImportChecksTheFileFirst) {
    for (const std::string line : {"sys", "=x", "/a b=1", "/a=\\x4", "/a=\\q"}) {
        const Ended ended = with_input({"import", "-"}, "/sys/hostname=attic\n" + line + "\n");
        EXPECT_EQ(ended.status, exit_refused) << line;
        EXPECT_THAT(ended.error, StartsWith("zanctl: -: line 2 is not PATH=VALUE: "));
    }
    EXPECT_EQ(zanctl({"get", "/sys/hostname"}), "xr500\n");
}

TEST_F(ZanctlTree, DiffPrintsBothValues) {
    write_file(users, zanctl({"export", "/sys/login"}) + "/sys/nope=1\n");
    zanctl({"set", "/sys/login/lock_seconds", "61"});
    const Ended ended = run_zanctl({"diff", users});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "-/sys/login/lock_seconds=60\n+/sys/login/lock_seconds=61\n");
    EXPECT_EQ(ended.error, "zanctl: /sys/nope: no such node (-101)\n");
    write_file(users, zanctl({"export"}));
    EXPECT_EQ(zanctl({"diff", users}), "");
}

// ---- batch

TEST_F(ZanctlTree, BatchRunsItsCommandsAsOneModule) {
    const Ended ended = with_input({"batch"}, "set /sys/hostname 'two \"words\"'\n"
                                              "\n"
                                              "  # comment\n"
                                              "get /sys/hostname \"/sys/\"domain # comment\n"
                                              "get --json /sys/domain\n"
                                              "get /zansim/modules\n"
                                              "set /sys/hostname a\\ b\n"
                                              "get /sys/hostname");
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "two \"words\"\nhome.lan\n"
                            "{\"path\":\"/sys/domain\",\"value\":\"home.lan\"}\n1\na b\n");
    EXPECT_EQ(ended.error, "");
}

TEST_F(ZanctlTree, BatchStopsAtAFailure) {
    const std::string commands = "get /sys/nope\nget /sys/hostname\n";
    const Ended stopped = with_input({"batch"}, commands);
    EXPECT_EQ(stopped.status, exit_refused);
    EXPECT_EQ(stopped.output, "");
    EXPECT_EQ(stopped.error, "zanctl: /sys/nope: no such node (-101)\n"
                             "zanctl: batch stopped at line 1: get /sys/nope\n");
    const Ended continued = with_input({"batch", "--keep-going"}, commands);
    EXPECT_EQ(continued.status, exit_refused);
    EXPECT_EQ(continued.output, "xr500\n");
    EXPECT_EQ(continued.error, "zanctl: /sys/nope: no such node (-101)\n");
}

TEST_F(ZanctlTree, BatchReportsErrorsOfUsage) {
    for (const auto &[line, error] :
         {std::pair("frob", "unknown command: frob"), std::pair("get", "PATH is required"),
          std::pair("get 'x", "a quotation mark is not closed"),
          std::pair("watch /a", "watch cannot run in a batch"),
          std::pair("batch", "batch cannot run in a batch"),
          std::pair("get --name x /sys", "the name of the module belongs to the batch"),
          std::pair("reset /sys/login", "--yes: required to confirm")}) {
        const Ended ended = with_input({"batch"}, std::string("get /sys/domain\n") + line + "\n");
        EXPECT_EQ(ended.status, exit_usage) << line;
        EXPECT_EQ(ended.output, "home.lan\n");
        EXPECT_THAT(ended.error, StartsWith(std::string("zanctl: line 2: ") + error));
        EXPECT_THAT(
            ended.error,
            testing::EndsWith(std::string("zanctl: batch stopped at line 2: ") + line + "\n"));
    }
}

// ---- JSON

TEST_F(ZanctlTree, JsonIsReadByJq) {
    if (std::system("command -v jq >/dev/null") != 0)
        GTEST_SKIP() << "jq is not installed";
    EXPECT_EQ(jq(".", {"ls", "/sys/user"}), R"({"path":"/sys/user:1","kind":"instance"})"
                                            "\n"
                                            R"({"path":"/sys/user:2","kind":"instance"})"
                                            "\n"
                                            R"({"path":"/sys/user:3","kind":"instance"})"
                                            "\n");
    EXPECT_EQ(jq("select(.access) | [.path, .kind, .value]", {"tree", "/sys"}),
              "[\"/sys/config_version\",\"value\",\"2026.1\"]\n");
    EXPECT_EQ(jq(".instances[].values.name", {"array", "/sys/user"}),
              "\"admin\"\n\"user\"\n\"support\"\n");
    EXPECT_EQ(jq(".number", {"add", "/sys/user"}), "4\n");
    EXPECT_EQ(jq(".", {"get", "/sys/nope"}),
              R"({"path":"/sys/nope","refused":true,"code":-101,"text":"no such node"})"
              "\n");
    write_file(users, "/sys/hostname=attic\n/sys/nope=1\n");
    EXPECT_EQ(jq(".", {"diff", users}),
              R"({"path":"/sys/hostname","file":"attic","live":"xr500"})"
              "\n"
              R"({"path":"/sys/nope","refused":true,"code":-101,"text":"no such node"})"
              "\n");
    EXPECT_EQ(
        jq("[.refused, .written, .unchanged, .not_written, .instances_added]", {"import", users}),
        "[true,null,null,null,null]\n[null,1,0,1,0]\n");
    EXPECT_EQ(jq("[.path, .value]", {"export", "/sys/hostname"}),
              "[\"/sys/hostname\",\"attic\"]\n");
}

} // namespace
} // namespace zan::test
