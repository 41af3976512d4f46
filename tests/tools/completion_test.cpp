// SPDX-License-Identifier: MIT
#include "help.h"
#include "zanctl.h"

#include "log/raw_table.h"
#include "support/sandbox.h"

#include <map>
#include <set>
#include <sstream>

namespace zan::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

// The completions that bash offers at the end of each line.  zanctl is a shell function,
// because it may need the emulator.
std::vector<std::vector<std::string>> complete(const std::vector<std::string> &lines,
                                               const std::string &zanctl_function) {
    std::string input;
    for (const std::string &line : lines)
        input += line + "\n";
    Program bash(script("command_line=(\"$@\")\n" + zanctl_function +
                            "source \"$COMPLETION\"\n"
                            "complete -p zanctl >&2\n"
                            "while IFS= read -r COMP_LINE; do\n"
                            "COMP_POINT=${#COMP_LINE}\n"
                            "_zanctl zanctl </dev/null\n"
                            "printf '%s\\n' \"${COMPREPLY[@]}\" END\n"
                            "done\n",
                        {}),
                 {.env = {{"COMPLETION", ZAN_TEST_COMPLETION}}, .input = input, .host = true});
    EXPECT_EQ(bash.wait(), 0);
    EXPECT_EQ(bash.error(), "complete -F _zanctl zanctl\n");
    std::vector<std::vector<std::string>> choices(1);
    std::istringstream output(bash.output());
    for (std::string choice; std::getline(output, choice);) {
        if (choice == "END")
            choices.emplace_back();
        else if (!choice.empty())
            choices.back().push_back(choice);
    }
    choices.pop_back();
    EXPECT_EQ(choices.size(), lines.size());
    return choices;
}

std::vector<std::string> complete(const std::string &line) {
    return complete({line}, "zanctl() { \"${command_line[@]}\" \"$@\"; }\n").at(0);
}

TEST(Completion, OffersTheCommands) {
    std::map<std::string, std::set<std::string>> groups;
    for (const CommandName &command : zanctl_commands)
        groups[command.words.front()].insert(command.words.begin() + 1, command.words.end());
    std::set<std::string> first_words;
    for (const auto &[word, commands] : groups) {
        first_words.insert(word);
        if (!commands.empty()) {
            EXPECT_THAT(complete("zanctl " + word + " "), UnorderedElementsAreArray(commands));
        }
    }
    EXPECT_THAT(complete("zanctl "), UnorderedElementsAreArray(first_words));
    EXPECT_THAT(complete("zanctl co"), UnorderedElementsAre("count", "control", "convert"));
    EXPECT_THAT(complete("zanctl --json --name x w"), ElementsAre("watch"));
}

TEST(Completion, OffersTheOptionsOfTheCommand) {
    EXPECT_THAT(complete("zanctl --"), UnorderedElementsAre("--help", "--version", "--json",
                                                            "--verbose", "--name", "--timeout"));
    EXPECT_THAT(complete("zanctl watch /a --"),
                UnorderedElementsAre("--help", "--json", "--verbose", "--name", "--timeout",
                                     "--event", "--count", "--time"));
    EXPECT_THAT(complete("zanctl send --"),
                UnorderedElementsAre("--help", "--json", "--verbose", "--name", "--timeout",
                                     "--ack", "--agent"));
    EXPECT_THAT(complete("zanctl listen wlan --w"), ElementsAre("--watch"));
    EXPECT_THAT(complete("zanctl fad reset --"),
                UnorderedElementsAre("--help", "--json", "--verbose", "--name", "--timeout",
                                     "--param", "--no-wait", "--keep-wifi", "--yes"));
    EXPECT_THAT(complete("zanctl control --y"), ElementsAre("--yes"));
    EXPECT_THAT(complete("zanctl cwmp --y"), ElementsAre("--yes"));
    EXPECT_THAT(complete("zanctl action re"), UnorderedElementsAre("reset", "reboot"));
    EXPECT_THAT(complete("zanctl watch --ti"), UnorderedElementsAre("--timeout", "--time"));
}

// Reads the help of each command once.
TEST(Completion, OffersEveryOptionOfEveryCommandAndNoOther) {
    const std::string remembers =
        "cache=$(mktemp -d)\n"
        "zanctl() {\n"
        "    local file=\"$cache/$*\"\n"
        "    [ -e \"$file\" ] || \"${command_line[@]}\" \"$@\" >\"$file\"\n"
        "    cat \"$file\"\n"
        "}\n";
    std::vector<std::string> lines;
    std::vector<std::vector<std::string>> expected;
    for (const Help &help : help_of_zanctl()) {
        lines.push_back("zanctl " + help.name() + (help.words.empty() ? "--" : " --"));
        expected.emplace_back();
        for (const std::string &option : help.options())
            if (option.starts_with("--"))
                expected.back().push_back(option);
    }
    const auto offered = complete(lines, remembers);
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_THAT(offered.at(i), UnorderedElementsAreArray(expected[i])) << lines[i];
}

TEST(Completion, OffersKindsAndMembersOfEventMessages) {
    EXPECT_THAT(complete("zanctl event encode "),
                UnorderedElementsAre("easymesh", "palumesh", "wan", "wifi_sniffer", "ser2net",
                                     "firewall", "neighbor"));
    EXPECT_THAT(complete("zanctl event decode wi"), ElementsAre("wifi_sniffer"));
    EXPECT_THAT(complete("zanctl event encode wan IP=1 "),
                UnorderedElementsAre("IP=", "Mask=", "Gateway=", "DNS=", "Interface="));
    EXPECT_THAT(complete("zanctl event encode firewall C"), ElementsAre("CFGPath="));
    EXPECT_THAT(complete("zanctl event decode wan "), IsEmpty());
}

TEST(Completion, OffersTheChoicesOfAnAction) {
    EXPECT_THAT(complete("zanctl action upgrade "), UnorderedElementsAre("firmware", "config"));
    EXPECT_THAT(complete("zanctl action upgrade --yes f"), ElementsAre("firmware"));
    EXPECT_THAT(complete("zanctl action upgrade firmware "), IsEmpty());
    EXPECT_THAT(complete("zanctl action save "), UnorderedElementsAre("config", "config2", "log"));
    EXPECT_THAT(complete("zanctl action shell "), IsEmpty());
}

TEST(Completion, KnowsTheOldNameOfAction) {
    EXPECT_THAT(complete("zanctl fad re"), UnorderedElementsAre("reset", "reboot"));
    EXPECT_THAT(complete("zanctl fad save l"), ElementsAre("log"));
}

TEST(Completion, OffersNothingForTheValueOfAnOption) {
    EXPECT_THAT(complete("zanctl --name "), IsEmpty());
    EXPECT_THAT(complete("zanctl watch --event "), IsEmpty());
}

TEST(Completion, OffersInterfaces) {
    EXPECT_THAT(complete("zanctl ifaddr l"), Contains("lo"));
    EXPECT_THAT(complete("zanctl mac-port l"), Contains("lo"));
    EXPECT_THAT(complete("zanctl mac-port lo l"), IsEmpty());
}

TEST(Completion, OffersNoPathsWithoutADaemon) {
    EXPECT_THAT(complete("zanctl get /sys/user:"), IsEmpty());
}

class CompletionOfPaths : public ZanctlTest {
protected:
    void SetUp() override {
        daemon.on(class_cfg, 23, answer("1 name=admin level=3\n12 name=guest level=0\n"));
    }
};

TEST_F(CompletionOfPaths, OffersPathsOnlyForPathArguments) {
    EXPECT_THAT(complete("zanctl listen --watch /sys/user:12"), ElementsAre("12"));
    for (const std::string command : {"pid", "send", "broadcast", "listen", "control", "dump",
                                      "login a", "action backup", "cwmp 1"})
        EXPECT_THAT(complete("zanctl " + command + " /sys/user:12"), IsEmpty()) << command;
}

// Bash replaces only what follows the last colon.
TEST_F(CompletionOfPaths, OffersInstances) {
    EXPECT_THAT(complete("zanctl get /sys/user:"), ElementsAre("1", "12"));
    EXPECT_EQ(daemon.records().at(1).payload(), "/sys/user");
    for (const std::string command :
         {"get /a", "attr get", "attr set", "print", "reset", "convert 1", "ifname"})
        EXPECT_THAT(complete("zanctl " + command + " /sys/user:12"), ElementsAre("12")) << command;
    EXPECT_THAT(complete("zanctl get /sys/user"), IsEmpty());
}

TEST_F(CompletionOfPaths, OffersTheValuesOfAnInstance) {
    EXPECT_THAT(complete("zanctl set /sys/user:12/"), ElementsAre("12/name", "12/level"));
    EXPECT_THAT(complete("zanctl set /sys/user:12/l"), ElementsAre("12/level"));
    EXPECT_THAT(complete("zanctl set /sys/user:2/"), IsEmpty());
}

TEST_F(CompletionOfPaths, OffersNothingWhenTheDaemonRefuses) {
    daemon.on(class_cfg, 23, negative(-3, "no such node: /sys/user"));
    EXPECT_THAT(complete("zanctl get /sys/user:"), IsEmpty());
}

TEST(CompletionOfLogs, OffersModulesAndSettings) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    EXPECT_THAT(complete("zanctl log level "), IsEmpty());
    RawTable table(create_raw_table());
    table.set(0, {.name = "wlan"});
    table.set(1, {.name = "dhcpd"});
    for (const std::string command : {"level", "dest", "tail"})
        EXPECT_THAT(complete("zanctl log " + command + " "), ElementsAre("wlan", "dhcpd"));
    EXPECT_THAT(complete("zanctl log list "), IsEmpty());
    EXPECT_THAT(complete("zanctl log level wlan "),
                ElementsAre("emergency", "alert", "critical", "error", "warning", "notice", "info",
                            "verbose"));
    EXPECT_THAT(complete("zanctl log dest --json wlan s"), ElementsAre("syslog"));
    EXPECT_THAT(complete("zanctl log dest wlan syslog "), IsEmpty());
    EXPECT_THAT(complete("zanctl log tail wlan "), IsEmpty());
}

} // namespace
} // namespace zan::test
