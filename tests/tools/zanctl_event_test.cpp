// SPDX-License-Identifier: MIT
#include "zanctl.h"

namespace zan::test {
namespace {

// All without a daemon.

struct Message {
    const char *kind;
    std::vector<std::string> members; // in the order of the keys
    std::string text;
};

const std::vector<Message> messages = {
    {"easymesh",
     {"Type=t", "Action=a", "ALMACAddress=02:00:00:00:00:01", "Value=v"},
     R"({"Type":"t","Action":"a","ALMACAddress":"02:00:00:00:00:01","Value":"v"})"},
    {"palumesh", {"Type=t", "Action=a", "Value=v"}, R"({"Type":"t","Action":"a","Value":"v"})"},
    {"wan",
     {"IP=10.0.0.2", "Mask=255.0.0.0", "Gateway=10.0.0.1", "DNS=9.9.9.9", "Interface=eth0"},
     R"({"IP":"10.0.0.2","Mask":"255.0.0.0","Gateway":"10.0.0.1","DNS":"9.9.9.9","Interface":"eth0"})"},
    {"wifi_sniffer", {"Action=scan"}, R"({"Action":"scan"})"},
    {"ser2net", {"Action=set", "CFGPath=/sys/a:1"}, R"({"Action":"set","CFGPath":"/sys/a:1"})"},
    {"firewall",
     {"Function=f", "Action=a", "CFGPath=/p", "Value=v"},
     R"({"Function":"f","Action":"a","CFGPath":"/p","Value":"v"})"},
    {"neighbor",
     {"SerialNumber=1", "Ssid=home", "Bssid24G=b", "Bssid5G=c", "Channel24G=6", "Channel5G=36"},
     R"({"SerialNumber":"1","Ssid":"home","Bssid24G":"b","Bssid5G":"c","Channel24G":"6","Channel5G":"36"})"},
};

std::string lines(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts)
        all += text + "\n";
    return all;
}

Ended encode(const std::string &kind, const std::vector<std::string> &members) {
    std::vector<std::string> arguments = {"event", "encode", kind};
    arguments.insert(arguments.end(), members.begin(), members.end());
    return run_zanctl(arguments);
}

TEST(ZanctlEvent, EncodesEveryKindInAnyOrder) {
    for (const Message &message : messages) {
        std::vector<std::string> members = message.members;
        EXPECT_EQ(encode(message.kind, members).output, message.text + "\n");
        std::reverse(members.begin(), members.end());
        const Ended ended = encode(message.kind, members);
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output, message.text + "\n");
        EXPECT_EQ(ended.error, "");
    }
}

TEST(ZanctlEvent, LeavesOutMissingMembers) {
    EXPECT_EQ(encode("wan", {}).output, "{}\n");
    EXPECT_EQ(encode("wan", {"DNS=1", "IP="}).output, "{\"IP\":\"\",\"DNS\":\"1\"}\n");
}

TEST(ZanctlEvent, AcceptsAnyTextAsAValue) {
    EXPECT_EQ(encode("palumesh", {"Type=a=b", "Action=--json", "Value=[\"x\\\n]"}).output,
              "{\"Type\":\"a=b\",\"Action\":\"--json\",\"Value\":\"[\\\"x\\\\\\n]\"}\n");
    // Every byte takes six characters.
    const std::string control(20000, '\x01');
    const Ended ended = encode("ser2net", {"Action=" + control, "CFGPath=" + control});
    EXPECT_EQ(ended.output.size(),
              std::string("{\"Action\":\"\",\"CFGPath\":\"\"}\n").size() + 240000);
    EXPECT_TRUE(ended.output.ends_with("\\u0001\"}\n"));
}

TEST(ZanctlEvent, DecodesEveryKind) {
    for (const Message &message : messages) {
        const Ended ended = run_zanctl({"event", "decode", message.kind, message.text});
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output, lines(message.members));
        EXPECT_EQ(ended.error, "");
    }
}

TEST(ZanctlEvent, PrintsOnlyThePresentMembers) {
    EXPECT_EQ(run_zanctl({"event", "decode", "wan", "{}"}).output, "");
    EXPECT_EQ(run_zanctl({"event", "decode", "wan", "[1]"}).output, "");
    EXPECT_EQ(run_zanctl({"event", "decode", "wan", R"({"dns":"","X":"x","IP":5})"}).output,
              "IP=\nDNS=\n");
    // A value like the mark of a buffer that was not written.
    EXPECT_EQ(run_zanctl({"event", "decode", "wifi_sniffer", "{\"Action\":\"\x7f\x7f\"}"}).output,
              "Action=\\x7F\\x7F\n");
}

TEST(ZanctlEvent, KeepsAValueOnItsLine) {
    EXPECT_EQ(run_zanctl({"event", "decode", "palumesh", R"({"Type":"a\nAction=b","Value":"\\"})"})
                  .output,
              "Type=a\\x0AAction=b\nValue=\\x5C\n");
}

TEST(ZanctlEvent, PrintsAJsonObjectWithTheKind) {
    EXPECT_EQ(run_zanctl({"event", "decode", "--json", "wan", R"({"dns":"a\n","IP":"1"})"}).output,
              R"({"kind":"wan","members":{"IP":"1","DNS":"a\n"}})"
              "\n");
    EXPECT_EQ(run_zanctl({"event", "decode", "--json", "wan", "{}"}).output,
              "{\"kind\":\"wan\",\"members\":{}}\n");
    EXPECT_EQ(run_zanctl({"event", "encode", "--json", "wan", "IP=1"}).output, "{\"IP\":\"1\"}\n");
}

TEST(ZanctlEvent, DecodesStandardInput) {
    // Longer than a pipe holds.
    const std::string read_input = "head -c 100000 /dev/zero | tr '\\0' m |"
                                   " sed 's/^/{\"Action\":\"/; s/$/\"}/' | \"$@\"";
    Program program(script(read_input, {"event", "decode", "wifi_sniffer"}), {.host = true});
    EXPECT_EQ(program.wait(), exit_done);
    EXPECT_EQ(program.output(), "Action=" + std::string(100000, 'm') + "\n");
    EXPECT_EQ(program.error(), "");
}

TEST(ZanctlEvent, ReportsTextThatIsNotJson) {
    for (const std::string text : {"x", "", "{", "{\"IP\":}"}) {
        const Ended ended = run_zanctl({"event", "decode", "wan", text});
        EXPECT_EQ(ended.status, exit_refused) << text;
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.error, "zanctl: event decode: the text is not JSON\n");
    }
}

TEST(ZanctlEvent, HelpListsTheKinds) {
    for (const std::string command : {"encode", "decode"}) {
        const Ended ended = run_zanctl({"event", command, "--help"});
        EXPECT_THAT(ended.output,
                    testing::HasSubstr(
                        "\nKinds:\n"
                        "  easymesh                    Type, Action, ALMACAddress, Value\n"));
        EXPECT_THAT(ended.output,
                    testing::HasSubstr("\n  ser2net                     Action, CFGPath\n"));
    }
}

TEST(ZanctlEvent, ReportsErrorsOfUsage) {
    const std::string kinds =
        " (expected one of: easymesh, palumesh, wan, wifi_sniffer, ser2net, firewall, neighbor)";
    const struct {
        std::vector<std::string> arguments;
        std::string complaint;
    } mistakes[] = {
        {{}, "A subcommand is required"},
        {{"encode"}, "KIND is required"},
        {{"decode"}, "KIND is required"},
        {{"encode", "lan"}, "KIND: unknown kind: lan" + kinds},
        {{"decode", "WAN"}, "KIND: unknown kind: WAN" + kinds},
        {{"encode", "ser2net", "Action"}, "KEY=VALUE: missing \"=\": Action"},
        {{"encode", "ser2net", "action=x"},
         "KEY=VALUE: unknown key of ser2net: action (expected one of: Action, CFGPath)"},
        {{"encode", "ser2net", "Action=x", "Action=y"}, "KEY=VALUE: duplicate key: Action"},
    };
    for (const auto &mistake : mistakes) {
        std::vector<std::string> arguments = {"event"};
        arguments.insert(arguments.end(), mistake.arguments.begin(), mistake.arguments.end());
        const Ended ended = run_zanctl(arguments);
        EXPECT_EQ(ended.status, exit_usage) << mistake.complaint;
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.error,
                  "zanctl: " + mistake.complaint + "\nRun with --help for more information.\n");
    }
}

} // namespace
} // namespace zan::test
