// SPDX-License-Identifier: MIT
// The path commands, without a daemon.
#include "zanctl.h"

#include <string>
#include <vector>

namespace zan::test {
namespace {

constexpr int exit_no_match = 1;

struct Row {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string error = {};
};

void expect(const std::string &command, const std::vector<Row> &rows) {
    for (const Row &row : rows) {
        std::vector<std::string> arguments = {"path", command};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        SCOPED_TRACE(testing::PrintToString(arguments));
        const Ended ended = run_zanctl(arguments);
        EXPECT_EQ(ended.status, row.status);
        EXPECT_EQ(ended.output, row.output);
        EXPECT_EQ(ended.error, row.error);
    }
}

const std::string match = "match\n";
const std::string no_match = "no match\n";

TEST(ZanctlPath, MatchComparesTwoPaths) {
    expect("match", {{{"/sys/user:#/name", "/sys/user:12/name"}, exit_done, match},
                     {{"/A:#", "/A:12"}, exit_no_match, no_match},
                     {{"/a/b", "/A/B"}, exit_no_match, no_match},
                     {{"--nocase", "/a/b", "/A/B"}, exit_done, match},
                     {{"", ""}, exit_done, match},
                     {{"--json", "/A", "/B"},
                      exit_no_match,
                      "{\"path\":\"/A\",\"other\":\"/B\",\"match\":false}\n"}});
}

TEST(ZanctlPath, PartComparesTheBeginning) {
    expect("part", {{{"/A/B", "/A/B/C"}, exit_done, match},
                    {{"/A/B/C", "/A/B"}, exit_no_match, no_match},
                    {{"--reverse", "/A/B/C", "/A/B"}, exit_done, match},
                    {{"--reverse", "/A/B", "/A/B/C"}, exit_no_match, no_match},
                    {{"/a:#.b", "/A:7/B/C"}, exit_no_match, no_match},
                    {{"--nocase", "/a:#.b", "/A:7/B/C"}, exit_done, match},
                    {{"--json", "/A", "/A/B"},
                     exit_done,
                     "{\"path\":\"/A\",\"other\":\"/A/B\",\"match\":true}\n"}});
}

TEST(ZanctlPath, ObjectComparesAPathWithAnObject) {
    expect("object", {{{"/A/B:#", "/A/B:3/Enable"}, exit_done, match},
                      {{"/A/B:#", "/A/B:3/C/D"}, exit_no_match, no_match},
                      {{"/A/B:3/Enable", "/A/B:#"}, exit_no_match, no_match},
                      {{"--json", "/A:#", "/A:1"},
                       exit_done,
                       "{\"pattern\":\"/A:#\",\"path\":\"/A:1\",\"match\":true}\n"}});
}

TEST(ZanctlPath, ExtractPrintsElements) {
    expect("extract", {{{"/A/B/C", "0", "2"}, exit_done, "A/B/\n"},
                       {{"/A/B/C", "1"}, exit_done, "B/\n"},
                       {{"/A/B/C", "-1"}, exit_done, "C\n"},
                       {{"/A/B/C", "-2"}, exit_done, "B/\n"},
                       {{"/A/B/C", "-2", "0"}, exit_done, "B/C\n"},
                       {{"/A/B/C", "1", "1"}, exit_done, "\n"},
                       {{"--json", "/A/B/C", "-1"},
                        exit_done,
                        "{\"path\":\"/A/B/C\",\"start\":-1,\"end\":0,\"elements\":\"C\"}\n"}});
    const std::string longest = "/" + std::string(1022, 'n');
    expect("extract", {{{longest, "0"}, exit_done, longest.substr(1) + "\n"}});
}

TEST(ZanctlPath, ExtractReportsAMissingRange) {
    const int largest = 2147483647;
    expect("extract",
           {{{"/A/B", "2"}, exit_no_match, "", "zanctl: /A/B: no elements 2 to 3\n"},
            {{"/A/B", "1", "0"}, exit_no_match, "", "zanctl: /A/B: no elements 1 to 0\n"},
            {{"--json", "/A/B", "1", "0"},
             exit_no_match,
             R"({"path":"/A/B","refused":true,"code":null,"text":"no elements 1 to 0"})"
             "\n"},
            {{"", "-1"}, exit_no_match, "", "zanctl: : no elements -1 to 0\n"},
            {{"/A", std::to_string(largest)},
             exit_no_match,
             "",
             "zanctl: /A: no elements 2147483647 to 2147483647\n"}});
}

TEST(ZanctlPath, RefusesLongPathsAndInvalidNumbers) {
    const std::string more = "\nRun with --help for more information.\n";
    const std::string longer(1024, 'n');
    expect("match", {{{"/A"}, exit_usage, "", "zanctl: OTHER is required" + more},
                     {{"/A", longer},
                      exit_usage,
                      "",
                      "zanctl: OTHER: a path has at most 1023 characters" + more}});
    expect("extract", {{{"/A"}, exit_usage, "", "zanctl: START is required" + more},
                       {{"/A", "x"}, exit_usage, "", "zanctl: Could not convert: START = x" + more},
                       {{longer, "0"},
                        exit_usage,
                        "",
                        "zanctl: PATH: a path has at most 1023 characters" + more}});
}

} // namespace
} // namespace zan::test
