// SPDX-License-Identifier: MIT
#include "help.h"
#include "zanctl.h"

#include <zan.h>

namespace zan::test {
namespace {

using testing::HasSubstr;

struct Mistake {
    const char *name;
    std::vector<std::string> arguments;
    std::string complaint;

    friend void PrintTo(const Mistake &mistake, std::ostream *out) { *out << mistake.name; }
};

class Usage : public testing::TestWithParam<Mistake> {};

// Without a daemon: a mistake is found before one is looked for.
TEST_P(Usage, MistakeIsReported) {
    const Ended ended = run_zanctl(GetParam().arguments);
    EXPECT_EQ(ended.status, exit_usage);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error,
              "zanctl: " + GetParam().complaint + "\nRun with --help for more information.\n");
}

const std::string all_commands =
    "there are get, set, count, array, add, del, watch, attr, dump, print, reset, apply, pid, "
    "send, broadcast, listen, control, login, convert, ifname, firewall, cwmp, fad, path, route, "
    "ifaddr, mac-port, log, event";
const std::string path_length = "PATH: a path has 1 to 1023 characters";
const std::string path_characters = "PATH: a path has no blanks or control characters";
const std::string text_length = "TEXT: a message has at most 1024 characters";
const std::string line_length = "CMDLINE: a command line has 1 to 1024 characters";
const std::string item_count = "ITEM: a login has 4 or 5 of them";
const std::string firewall_forms =
    "firewall: the options are -f [-p] [-a], -f -k, -C, or -b -p -i -m";
const std::string name_length = "--name: a module name has 1 to 31 characters";
const std::string name_characters =
    "--name: a module name has no blanks, control characters or slashes";

INSTANTIATE_TEST_SUITE_P(
    Zanctl, Usage,
    testing::Values(
        Mistake{"NoCommand", {}, "A subcommand is required"},
        Mistake{"UnknownCommand", {"frob"}, "no command \"frob\"; " + all_commands},
        Mistake{"UnknownCommandWithWords",
                {"frob", "--json", "/x"},
                "no command \"frob\"; " + all_commands},
        Mistake{"UnknownCommandOfAGroup",
                {"fad", "rebot", "--yes"},
                "no command \"rebot\" in \"fad\"; there are upgrade, save, backup, reset, "
                "reboot, shell"},
        Mistake{
            "UnknownOptionAlone", {"--frob"}, "The following argument was not expected: --frob"},
        Mistake{"UnknownOptionOfAGroup",
                {"fad", "--frob", "1"},
                "The following argument was not expected: --frob"},
        Mistake{"NoPath", {"get"}, "PATH is required"},
        Mistake{"NoValue", {"set", "/x"}, "VALUE is required"},
        Mistake{"NoModule", {"pid"}, "MODULE is required"},
        Mistake{"NothingToWatch", {"watch"}, "PATH or --event is required"},
        Mistake{"EmptyPath", {"get", ""}, path_length},
        Mistake{"LongPath", {"get", std::string(1024, '/')}, path_length},
        Mistake{"BlankInPath", {"get", "/a b"}, path_characters},
        Mistake{"BlankInPathToSet", {"set", "/a b", "c"}, path_characters},
        Mistake{"LineEndInPath", {"watch", "/a\n"}, path_characters},
        Mistake{"LongValue",
                {"set", "/x", std::string(33975, 'v')},
                "VALUE: a value has at most 33974 characters"},
        Mistake{"EmptyName", {"get", "--name", "", "/x"}, name_length},
        Mistake{"LongName", {"get", "--name", std::string(32, 'n'), "/x"}, name_length},
        Mistake{"SlashInName", {"get", "--name", "a/b", "/x"}, name_characters},
        Mistake{"BlankInName", {"get", "--name", "a b", "/x"}, name_characters},
        Mistake{"NoText", {"send", "wlan"}, "TEXT is required"},
        Mistake{"NoTextForAll", {"broadcast"}, "TEXT is required"},
        Mistake{"NoCommandLine", {"control"}, "CMDLINE is required"},
        Mistake{"LongText", {"send", "wlan", std::string(1025, 't')}, text_length},
        Mistake{"LongTextForAll", {"broadcast", std::string(1025, 't')}, text_length},
        Mistake{"LongCommandLine", {"control", std::string(1025, 't')}, line_length},
        Mistake{"EmptyCommandLine", {"control", ""}, line_length},
        Mistake{"LongReceiver",
                {"send", std::string(32, 'n'), "x"},
                "MODULE: a module name has 1 to 31 characters"},
        Mistake{"SlashInModule",
                {"pid", "a/b"},
                "MODULE: a module name has no blanks, control characters or slashes"},
        Mistake{"LongListener",
                {"listen", std::string(32, 'n')},
                "NAME: a module name has 1 to 31 characters"},
        Mistake{"BlankInPathToListenFor",
                {"listen", "--watch", "/a b"},
                "--watch: a path has no blanks or control characters"},
        Mistake{"UnconfirmedByAgent", {"send", "--agent", "wlan", "x"}, "--agent requires --ack"},
        Mistake{"WhereNoAgentGoes",
                {"set", "--agent", "/x", "y"},
                "The following argument was not expected: --agent"},
        Mistake{"UnknownLevel",
                {"log", "level", "wlan", "8"},
                "LEVEL: a level is 0 to 7, or one of: emergency, alert, critical, "
                "error, warning, notice, info, verbose"},
        Mistake{"UnknownDest",
                {"log", "dest", "wlan", "printer"},
                "DEST: a destination is 1 to 5, or one of: console, terminals, "
                "syslog, all, file, off"},
        Mistake{"SlashInLog",
                {"log", "tail", "../wlan"},
                "MODULE: a module name has no blanks, control characters or slashes"},
        Mistake{"NoCommandOfAGroup", {"fad"}, "A subcommand is required"},
        Mistake{"NoAttributes", {"attr", "set", "/x"}, "TEXT is required"},
        Mistake{"LongAttributes",
                {"attr", "set", "/x", std::string(1020, 't')},
                "TEXT: path and text have at most 1022 characters together"},
        Mistake{"LongTextToPrint",
                {"print", "/x", std::string(1021, 't')},
                "TEXT: path and text have at most 1023 characters together"},
        Mistake{"LongFile", {"dump", std::string(1024, 'f')}, "FILE: it has 1 to 1023 characters"},
        Mistake{"FewItems", {"login", "a", "b", "c"}, item_count},
        Mistake{"ManyItems", {"login", "a", "b", "c", "d", "e", "f"}, item_count},
        Mistake{"LineEndInItem", {"login", "a", "b\n", "c", "d"}, "ITEM: an item has no line end"},
        Mistake{"UnknownKind", {"convert", "10", "/x"}, "KIND: Value 10 not in range 0 to 9"},
        Mistake{"LongPathToConvert",
                {"convert", "1", std::string(1023, '/')},
                "PATH: a path to convert has 1 to 1022 characters"},
        Mistake{"NothingForTheFirewall", {"firewall"}, firewall_forms},
        Mistake{
            "MixedFirewallForms", {"firewall", "-f", "a", "-k", "b", "-p", "c"}, firewall_forms},
        Mistake{"RuleWithOption", {"firewall", "-C", "a", "-f", "b"}, firewall_forms},
        Mistake{"BridgeWithout", {"firewall", "-b", "-p", "a"}, firewall_forms},
        Mistake{"BridgeWithOther",
                {"firewall", "-b", "-p", "a", "-i", "b", "-m", "1", "-f", "c"},
                firewall_forms},
        Mistake{"LongFirewallLine",
                {"firewall", "-f", std::string(1008, 'f')},
                "firewall: the line would have more than 1024 characters"},
        Mistake{"UnknownUpgrade",
                {"fad", "upgrade", "rom", "/x"},
                "WHAT: rom not in {firmware,config}"},
        Mistake{"NoFileToUpgradeFrom", {"fad", "upgrade", "config"}, "FILE is required"},
        Mistake{"LongShellCommand",
                {"fad", "shell", std::string(512, 'c')},
                "COMMAND: it has 1 to 511 characters"},
        Mistake{"NegativeParameter",
                {"fad", "save", "--param", "-1"},
                "--param: Value -1 not in range 0 to 2147483647"},
        Mistake{"NoTimeout",
                {"get", "--timeout", "0", "/x"},
                "--timeout: Value 0 not in range 0.010000 to 86400.000000"},
        Mistake{"WordAsTimeout",
                {"get", "--timeout", "soon", "/x"},
                "--timeout: Value soon not in range 0.010000 to 86400.000000"}),
    [](const auto &param) { return std::string(param.param.name); });

TEST(Zanctl, TheLongestPathAndNameAreNoMistake) {
    const Ended ended = run_zanctl({"get", "--name", std::string(31, 'n'), std::string(1023, '/')});
    EXPECT_EQ(ended.status, exit_no_daemon);
}

TEST(Zanctl, PrintsItsVersion) {
    const Ended ended = run_zanctl({"--version"});
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "zanctl " + std::to_string(ZAN_VERSION_MAJOR) + "." +
                                std::to_string(ZAN_VERSION_MINOR) + "." +
                                std::to_string(ZAN_VERSION_PATCH) + "\n");
    EXPECT_EQ(ended.error, "");
}

TEST(Zanctl, HelpListsTheCommands) {
    std::vector<std::vector<std::string>> listed;
    for (const Help &help : help_of_zanctl())
        if (!help.is_group())
            listed.push_back(help.words);
    std::vector<std::vector<std::string>> commands;
    for (const CommandName &command : zanctl_commands)
        commands.push_back(command.words);
    EXPECT_THAT(listed, testing::UnorderedElementsAreArray(commands));
    const Help help = help_of(zanctl_command({}));
    for (const std::string option : {"--json", "--name NAME", "--timeout SECONDS"})
        EXPECT_THAT(help.text, HasSubstr("\n  " + option + " "));
}

TEST(Zanctl, EveryCommandHasHelpOfItsOwn) {
    for (const CommandName &command : zanctl_commands) {
        std::vector<std::string> words = command.words;
        std::string usage = "Usage: zanctl";
        for (const std::string &word : words)
            usage += " " + word;
        words.emplace_back("--help");
        const Ended ended = run_zanctl(words);
        EXPECT_EQ(ended.status, exit_done) << usage;
        EXPECT_THAT(ended.output, HasSubstr(usage + " [OPTIONS]"));
        EXPECT_THAT(ended.output, HasSubstr("\n  --json ")) << usage;
        EXPECT_THAT(ended.output, HasSubstr("\n\nExit codes: 0 done")) << usage;
        EXPECT_THAT(ended.output, testing::Not(HasSubstr("\n\n\n"))) << usage;
        for (const std::string option : {"--name NAME", "--timeout SECONDS"})
            EXPECT_EQ(ended.output.find(option) != std::string::npos, command.needs_daemon)
                << usage;
        EXPECT_EQ(ended.error, "");
    }
}

} // namespace
} // namespace zan::test
