// SPDX-License-Identifier: MIT
#include "zanctl.h"

#include "support/raw.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace zan::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

const std::vector<std::string> programs = {
    "sim/zansim",       "tools/zanctl",        "examples/first_module",
    "examples/watcher", "examples/mesh_agent", "examples/questioner"};

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// A build directory in which one program is a script of the test's.
class DoctoredBuild {
public:
    DoctoredBuild(const std::string &replaced, const std::string &script) {
        char path[] = "/tmp/build.XXXXXX";
        directory_ = mkdtemp(path);
        for (const std::string &program : programs) {
            const std::string real = joined(target_command({ZAN_TEST_BUILD "/" + program}));
            write(program, program == replaced ? "real='" + real + "'\n" + script
                                               : "exec " + real + " \"$@\"\n");
        }
    }
    ~DoctoredBuild() { fs::remove_all(directory_); }
    DoctoredBuild(const DoctoredBuild &) = delete;
    DoctoredBuild &operator=(const DoctoredBuild &) = delete;

    const std::string &directory() const { return directory_; }

private:
    void write(const std::string &program, const std::string &script) const {
        const fs::path path = fs::path(directory_) / program;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "#!/bin/sh\n" << script;
        fs::permissions(path, fs::perms::owner_all);
    }

    std::string directory_;
};

Ended run_script(const std::string &name, const std::string &build, const std::string &emulator,
                 const std::string &input = "") {
    Program program(
        {ZAN_TEST_SCRIPTS "/" + name, build},
        {.env = {{"ZAN_EMULATOR", emulator}, {"SHELL", "/bin/sh"}, {"ZAN_PATIENCE", "10"}},
         .input = input,
         .host = true});
    const int status = program.wait();
    return {status, program.output(), program.error()};
}

Ended run_script(const std::string &name, const std::string &input = "") {
    return run_script(name, ZAN_TEST_BUILD, joined(target_command({})), input);
}

std::vector<std::string> left_in_tmp(const std::string &part) {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator("/tmp"))
        if (const std::string name = entry.path().filename(); name.find(part) != std::string::npos)
            names.push_back(name);
    return names;
}

// ---- the demo

TEST(Demo, VerifiesEveryStep) {
    const Ended ended = run_script("demo");
    EXPECT_EQ(ended.status, 0) << ended.output;
    EXPECT_EQ(ended.error, "");
    EXPECT_THAT(ended.output, Not(HasSubstr("FAILED")));
    EXPECT_THAT(ended.output, HasSubstr("\nAll 7 steps verified."));
    EXPECT_THAT(ended.output, HasSubstr("hardware model: "));
    EXPECT_THAT(ended.output, HasSubstr("      mesh_agent answers: channel "));
    EXPECT_THAT(ended.output, HasSubstr("    | "));
    EXPECT_THAT(left_in_tmp("zan"), IsEmpty());
    EXPECT_THAT(left_in_tmp(".msq"), IsEmpty());
}

// Queue ids, process ids, times and the name that the demo makes up differ from run to run.
std::string without_numbers(const std::string &text) {
    return std::regex_replace(text, std::regex("[0-9]+"), "0");
}

// The lines of the README's picture; a line that was cut ends with an ellipsis.
std::vector<std::string> pictured_lines() {
    static const std::string ellipsis = "\u2026";
    std::vector<std::string> lines;
    std::istringstream text(read_file(ZAN_TEST_PICTURE));
    for (std::string line; std::getline(text, line);) {
        if (line.find("more records") != std::string::npos)
            continue;
        if (line.ends_with(ellipsis))
            line.resize(line.size() - ellipsis.size());
        lines.push_back(without_numbers(line));
    }
    return lines;
}

TEST(Demo, PrintsWhatIsPictured) {
    const std::string output = without_numbers(run_script("demo").output);
    std::size_t at = 0;
    for (const std::string &line : pictured_lines()) {
        const std::size_t next = output.find(line, at);
        ASSERT_NE(next, std::string::npos)
            << "run 'make pictures': the demo does not print here: " << line;
        at = next + line.size();
    }
}

struct Defect {
    const char *name;
    std::string program;
    std::string script;
    std::string failure;

    friend void PrintTo(const Defect &defect, std::ostream *out) { *out << defect.name; }
};

class DemoWithDefect : public testing::TestWithParam<Defect> {};

TEST_P(DemoWithDefect, FailsAtTheStep) {
    const DoctoredBuild build(GetParam().program, GetParam().script);
    const Ended ended = run_script("demo", build.directory(), "");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.output, EndsWith("\nThe demo FAILED at " + GetParam().failure + "\n"));
    EXPECT_THAT(left_in_tmp("zan-demo"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, DemoWithDefect,
    testing::Values(
        Defect{"NoDaemon", "sim/zansim", "echo zansim: ready\nexit 0\n",
               "step 1: zanctl, the command line, gets an answer"},
        Defect{"NoWatcher", "examples/watcher", "echo watching\nexit 1\n",
               "step 2: the trace shows: out NOTIFY watch ZAN -> watcher"},
        Defect{"FailingModule", "examples/first_module", "exit 1\n",
               "step 3: first_module does its work"},
        Defect{"OtherModel", "examples/first_module",
               "$real \"$@\" | sed 's/^hardware model: ./&9/'\n",
               "step 3: the model it printed is what zanctl reads"},
        Defect{"OtherCount", "examples/first_module", "$real \"$@\" | sed 's/^users: ./&9/'\n",
               "step 3: the number of users it printed is what zanctl counts"},
        Defect{"OtherUser", "examples/first_module", "$real \"$@\" | sed 's/^  user 1: ./&9/'\n",
               "step 3: its first user is what zanctl reads"},
        Defect{"OtherName", "examples/first_module", "$real Elsewhere\n",
               "step 3: the tree has the new name"},
        Defect{"WatcherFails", "examples/watcher", "$real\nexit 1\n",
               "step 4: the watcher ends without an error"},
        Defect{
            "WatcherIsWrong", "examples/watcher",
            "$real | while IFS= read -r line; do echo \"$line\" | sed 's/name to: ./&9/'; done\n",
            "step 4: watcher knows who changed the setting, and to what"},
        Defect{"NoAgent", "examples/mesh_agent", "echo waiting\nexit 1\n",
               "step 5: the trace shows: out REGISTRATION register ZAN -> mesh_agent link"},
        Defect{"NoQuestion", "examples/questioner", "exit 1\n",
               "step 6: the questioner gets an answer"},
        Defect{"AgentFails", "examples/mesh_agent", "$real\nexit 1\n",
               "step 6: the agent ends without an error"},
        Defect{"OtherChannel", "examples/questioner", "$real | sed 's/channel ./&9/'\n",
               "step 6: the channel in the answer is what zanctl reads"},
        Defect{"DaemonEndsBadly", "sim/zansim",
               "$real \"$@\" & trap 'kill $!; wait $!; exit 3' TERM\nwait $!\n",
               "step 7: zansim ended without an error"},
        Defect{"KeyFileLeft", "examples/watcher", "$real\n>/tmp/watcher_0.msq\n",
               "step 7: no daemon file and no key file is left in /tmp"},
        Defect{"QueueLeft", "sim/zansim",
               "queue=$(ipcmk -Q | tr -dc 0-9)\n"
               "echo \"note queue=$queue\"\n"
               "exec $real \"$@\"\n",
               "step 7: no queue is left"}),
    [](const auto &param) { return std::string(param.param.name); });

TEST(Demo, ReportsMissingPrograms) {
    const fs::path empty = "/tmp/empty-build";
    fs::create_directory(empty);
    const Ended ended = run_script("demo", empty, "");
    fs::remove_all(empty);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.error, "demo: /tmp/empty-build/sim/zansim is missing: build it first\n");
}

TEST(Demo, RequiresASandbox) {
    unsetenv("ZAN_SANDBOX");
    const Ended ended = run_script("demo", ZAN_TEST_BUILD, "");
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.error, HasSubstr("scripts/sandbox scripts/demo"));
}

// ---- the shell

TEST(Shell, RunsCommandsFromStandardInput) {
    const Ended ended = run_script("shell", "zanctl set /sys/user:1/name root\n"
                                            "zanctl get /sys/user:1/name\n"
                                            "zanctl get /nowhere\n"
                                            "first_module Upstairs | tail -n 1\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, testing::MatchesRegex("root\nWi-Fi network: .* -> Upstairs\n"));
    EXPECT_EQ(ended.error, "zanctl: /nowhere: no such node (-101)\n");
    EXPECT_THAT(left_in_tmp("zan"), IsEmpty());
    EXPECT_THAT(left_in_tmp(".msq"), IsEmpty());
}

TEST(Shell, EndsWithTheStatusOfItsCommands) {
    EXPECT_EQ(run_script("shell", "zanctl get /nowhere 2>/dev/null\n").status, exit_refused);
    EXPECT_EQ(run_script("shell", "exit 7\n").status, 7);
}

} // namespace
} // namespace zan::test
