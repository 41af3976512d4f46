// SPDX-License-Identifier: MIT
#include "decode/names.h"
#include "wire/command.h"
#include "wire/result.h"

#include <gtest/gtest.h>

#include <set>

namespace zan::decode {
namespace {

TEST(ClassNames, GoBothWays) {
    EXPECT_EQ(class_name(1), "CFG");
    EXPECT_EQ(class_name(9), "BROADCAST");
    EXPECT_EQ(class_name(6), "");
    EXPECT_EQ(class_text(7), "ACTION");
    EXPECT_EQ(class_text(6), "class-6");
    EXPECT_EQ(class_text(-1), "class--1");
    for (const wire::Class &row : wire::classes)
        EXPECT_EQ(class_by_name(class_name(row.type)), row.type);
    EXPECT_EQ(class_by_name("cfg"), std::nullopt);
    EXPECT_EQ(class_by_name(""), std::nullopt);
}

TEST(CommandNames, GoBothWays) {
    EXPECT_EQ(command_name(1, 1), "get");
    EXPECT_EQ(command_text(1, 1), "get");
    EXPECT_EQ(command_text(7, 17), "factory-reset-wo-wifi");
    for (const wire::Command &row : wire::commands) {
        if (row.name.empty() || row.cmd == wire::any_command)
            continue;
        EXPECT_EQ(command_name(row.type, row.cmd), row.name);
        EXPECT_EQ(command_by_name(row.type, row.name), row.cmd);
        EXPECT_TRUE(is_command_name(row.name));
        EXPECT_TRUE(is_command_name(row.name, row.type));
    }
}

TEST(CommandNames, AreMissingForUnknownCommands) {
    EXPECT_EQ(command_name(1, 0), "");
    EXPECT_EQ(command_text(1, 0), "0");
    EXPECT_EQ(command_text(1, 30), "30"); // answered, but not requested
    EXPECT_EQ(command_text(6, -4), "-4");
    EXPECT_EQ(command_by_name(1, "shell"), std::nullopt);
    EXPECT_EQ(command_by_name(1, ""), std::nullopt);
    EXPECT_FALSE(is_command_name(""));
    EXPECT_FALSE(is_command_name("", 1));
    EXPECT_FALSE(is_command_name("get", 7));
    EXPECT_FALSE(is_command_name("nope"));
}

TEST(CommandNames, OfAWholeClassStandForNoNumber) {
    EXPECT_EQ(command_name(2, 5), "request");
    EXPECT_EQ(command_text(2, 5), "5");
    EXPECT_TRUE(is_command_name("request", 2));
    EXPECT_EQ(command_by_name(2, "request"), std::nullopt);
}

TEST(ChangeNames, GoBothWays) {
    EXPECT_EQ(change_name(1), "changed");
    EXPECT_EQ(change_name(2), "added");
    EXPECT_EQ(change_name(3), "deleted");
    EXPECT_EQ(change_name(0), "");
    EXPECT_EQ(change_name(4), "");
    EXPECT_EQ(change_by_name("deleted"), 3);
    EXPECT_EQ(change_by_name("value"), std::nullopt);
}

TEST(ResultNames, GoBothWays) {
    EXPECT_EQ(result_name(-101), "no-node");
    EXPECT_EQ(result_name(-124), "shell-failed");
    EXPECT_EQ(result_name(-2003), "send-failed");
    EXPECT_EQ(result_name(1), "");
    EXPECT_EQ(result_name(0), "");
    EXPECT_EQ(result_name(-3), "");
    std::set<int> codes;
    for (const wire::ResultName &row : wire::results) {
        EXPECT_TRUE(codes.insert(row.code).second) << row.code;
        EXPECT_EQ(result_by_name(result_name(row.code)), row.code);
    }
    for (int code = -124; code <= -101; ++code)
        EXPECT_FALSE(result_name(code).empty()) << code;
    EXPECT_EQ(result_by_name("nope"), std::nullopt);
}

} // namespace
} // namespace zan::decode
