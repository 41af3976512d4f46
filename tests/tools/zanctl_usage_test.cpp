// SPDX-License-Identifier: MIT
#include "help.h"
#include "zanctl.h"

#include <zan.h>

namespace zan::test {
namespace {

using testing::HasSubstr;

struct UsageError {
    const char *name;
    std::vector<std::string> arguments;
    std::string error;

    friend void PrintTo(const UsageError &error, std::ostream *out) { *out << error.name; }
};

class Usage : public testing::TestWithParam<UsageError> {};

// There is no daemon: usage is checked first.
TEST_P(Usage, ErrorIsReported) {
    const Ended ended = run_zanctl(GetParam().arguments);
    EXPECT_EQ(ended.status, exit_usage);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error,
              "zanctl: " + GetParam().error + "\nRun with --help for more information.\n");
}

const std::string all_commands =
    " (expected one of: get, set, count, array, add, del, watch, attr, dump, print, reset, apply, "
    "ls, tree, export, import, diff, pid, send, broadcast, listen, control, login, convert, "
    "ifname, "
    "firewall, cwmp, action, path, route, ifaddr, mac-port, log, event, batch, help)";
const std::string path_length = "PATH: a path has 1 to 1023 characters";
const std::string path_characters = "PATH: a path has no spaces or control characters";
const std::string text_length = "TEXT: a message has at most 1024 characters";
const std::string line_length = "CMDLINE: a command line has 1 to 1024 characters";
const std::string item_count = "ITEM: a login has 4 or 5 items";
const std::string firewall_forms =
    "firewall: the options are -f [-p] [-a], -f -k, -C, or -b -p -i -m";
const std::string name_length = "--name: a module name has 1 to 31 characters";
const std::string name_characters =
    "--name: a module name has no spaces, control characters or slashes";

INSTANTIATE_TEST_SUITE_P(
    Zanctl, Usage,
    testing::Values(
        UsageError{"NoCommand", {}, "A subcommand is required"},
        UsageError{"UnknownCommand", {"frob"}, "unknown command: frob" + all_commands},
        UsageError{"UnknownCommandWithWords",
                   {"frob", "--json", "/x"},
                   "unknown command: frob" + all_commands},
        UsageError{"UnknownCommandOfAGroup",
                   {"action", "rebot", "--yes"},
                   "unknown command: action rebot (expected one of: upgrade, save, backup, reset, "
                   "reboot, shell)"},
        UsageError{"UnknownOptionAlone", {"--frob"}, "unknown option: --frob"},
        UsageError{"UnknownOptionOfAGroup", {"action", "--frob", "1"}, "unknown option: --frob"},
        UsageError{"NoPath", {"get"}, "PATH is required"},
        UsageError{"NoValue", {"set", "/x"}, "VALUE is required"},
        UsageError{"NoModule", {"pid"}, "MODULE is required"},
        UsageError{"NothingToWatch", {"watch"}, "PATH or --event is required"},
        UsageError{"EmptyPath", {"get", ""}, path_length},
        UsageError{"LongPath", {"get", std::string(1024, '/')}, path_length},
        UsageError{"BlankInPath", {"get", "/a b"}, path_characters},
        UsageError{"BlankInPathToSet", {"set", "/a b", "c"}, path_characters},
        UsageError{"LineEndInPath", {"watch", "/a\n"}, path_characters},
        UsageError{"LongValue",
                   {"set", "/x", std::string(33975, 'v')},
                   "VALUE: a value has at most 33974 characters"},
        UsageError{"EmptyName", {"get", "--name", "", "/x"}, name_length},
        UsageError{"LongName", {"get", "--name", std::string(32, 'n'), "/x"}, name_length},
        UsageError{"SlashInName", {"get", "--name", "a/b", "/x"}, name_characters},
        UsageError{"BlankInName", {"get", "--name", "a b", "/x"}, name_characters},
        UsageError{"NoText", {"send", "wlan"}, "TEXT is required"},
        UsageError{"NoTextForAll", {"broadcast"}, "TEXT is required"},
        UsageError{"NoCommandLine", {"control"}, "CMDLINE is required"},
        UsageError{"LongText", {"send", "wlan", std::string(1025, 't')}, text_length},
        UsageError{"LongTextForAll", {"broadcast", std::string(1025, 't')}, text_length},
        UsageError{"LongCommandLine", {"control", std::string(1025, 't')}, line_length},
        UsageError{"EmptyCommandLine", {"control", ""}, line_length},
        UsageError{"LongReceiver",
                   {"send", std::string(32, 'n'), "x"},
                   "MODULE: a module name has 1 to 31 characters"},
        UsageError{"SlashInModule",
                   {"pid", "a/b"},
                   "MODULE: a module name has no spaces, control characters or slashes"},
        UsageError{"LongListener",
                   {"listen", std::string(32, 'n')},
                   "NAME: a module name has 1 to 31 characters"},
        UsageError{"BlankInPathToListenFor",
                   {"listen", "--watch", "/a b"},
                   "--watch: a path has no spaces or control characters"},
        UsageError{
            "UnconfirmedByAgent", {"send", "--agent", "wlan", "x"}, "--agent requires --ack"},
        UsageError{"WhereNoAgentGoes",
                   {"set", "--agent", "/x", "y"},
                   "The following argument was not expected: --agent"},
        UsageError{"UnknownLevel",
                   {"log", "level", "wlan", "8"},
                   "LEVEL: a level is 0 to 7, or one of: emergency, alert, critical, "
                   "error, warning, notice, info, verbose"},
        UsageError{"UnknownDest",
                   {"log", "dest", "wlan", "printer"},
                   "DEST: a destination is 1 to 5, or one of: console, terminals, "
                   "syslog, all, file, off"},
        UsageError{"SlashInLog",
                   {"log", "tail", "../wlan"},
                   "MODULE: a module name has no spaces, control characters or slashes"},
        UsageError{"NoCommandOfAGroup", {"fad"}, "A subcommand is required"},
        UsageError{"NoAttributes", {"attr", "set", "/x"}, "TEXT is required"},
        UsageError{"LongAttributes",
                   {"attr", "set", "/x", std::string(1020, 't')},
                   "TEXT: path and text have at most 1022 characters together"},
        UsageError{"LongTextToPrint",
                   {"print", "/x", std::string(1021, 't')},
                   "TEXT: path and text have at most 1023 characters together"},
        UsageError{"LongFile",
                   {"dump", std::string(1024, 'f')},
                   "FILE: a file name has 1 to 1023 characters"},
        UsageError{"FewItems", {"login", "a", "b", "c"}, item_count},
        UsageError{"ManyItems", {"login", "a", "b", "c", "d", "e", "f"}, item_count},
        UsageError{
            "LineEndInItem", {"login", "a", "b\n", "c", "d"}, "ITEM: an item has no newline"},
        UsageError{"UnknownKind", {"convert", "10", "/x"}, "KIND: Value 10 not in range 0 to 9"},
        UsageError{"LongPathToConvert",
                   {"convert", "1", std::string(1023, '/')},
                   "PATH: a path to convert has 1 to 1022 characters"},
        UsageError{"NothingForTheFirewall", {"firewall"}, firewall_forms},
        UsageError{
            "MixedFirewallForms", {"firewall", "-f", "a", "-k", "b", "-p", "c"}, firewall_forms},
        UsageError{"RuleWithOption", {"firewall", "-C", "a", "-f", "b"}, firewall_forms},
        UsageError{"BridgeWithout", {"firewall", "-b", "-p", "a"}, firewall_forms},
        UsageError{"BridgeWithOther",
                   {"firewall", "-b", "-p", "a", "-i", "b", "-m", "1", "-f", "c"},
                   firewall_forms},
        UsageError{"LongFirewallLine",
                   {"firewall", "-f", std::string(1008, 'f')},
                   "firewall: the line would have more than 1024 characters"},
        UsageError{"UnknownUpgrade",
                   {"action", "upgrade", "rom", "/x"},
                   "WHAT: rom not in {firmware,config}"},
        UsageError{"NoFileToUpgradeFrom", {"action", "upgrade", "config"}, "FILE is required"},
        UsageError{"LongShellCommand",
                   {"action", "shell", std::string(512, 'c')},
                   "COMMAND: a command has 1 to 511 characters"},
        UsageError{"NegativeParameter",
                   {"action", "save", "--param", "-1"},
                   "--param: Value -1 not in range 0 to 2147483647"},
        UsageError{"NoTimeout",
                   {"get", "--timeout", "0", "/x"},
                   "--timeout: Value 0 not in range 0.010000 to 86400.000000"},
        UsageError{"WordAsTimeout",
                   {"get", "--timeout", "soon", "/x"},
                   "--timeout: Value soon not in range 0.010000 to 86400.000000"}),
    [](const auto &param) { return std::string(param.param.name); });

TEST(Zanctl, AcceptsThePathAndNameOfMaximumLength) {
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

TEST(Zanctl, HelpIsACommandToo) {
    EXPECT_EQ(run_zanctl({"help"}).output, run_zanctl({"--help"}).output);
    EXPECT_EQ(run_zanctl({"help", "get"}).output, run_zanctl({"get", "--help"}).output);
    EXPECT_EQ(run_zanctl({"help", "attr", "set"}).output,
              run_zanctl({"attr", "set", "--help"}).output);
    EXPECT_EQ(run_zanctl({"help", "attr"}).output, run_zanctl({"attr", "--help"}).output);
    const Ended unknown = run_zanctl({"help", "frob"});
    EXPECT_EQ(unknown.status, exit_usage);
    EXPECT_EQ(unknown.output, "");
    EXPECT_EQ(unknown.error, "zanctl: unknown command: frob" + all_commands + "\n");
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

TEST(Zanctl, EveryCommandHasHelp) {
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
