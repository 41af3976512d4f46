// SPDX-License-Identifier: MIT
#include "wire/command.h"

#include "support/commands.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <utility>

namespace zan::wire {
namespace {

TEST(Commands, AreListedOnce) {
    std::set<std::pair<int, int>> seen;
    for (const Command &row : commands)
        EXPECT_TRUE(seen.emplace(row.type, row.cmd).second) << row.type << ' ' << row.cmd;
}

TEST(Commands, HaveOneNameInEachClass) {
    std::set<std::pair<int, std::string_view>> seen;
    for (const Command &row : commands)
        EXPECT_TRUE(row.name.empty() || seen.emplace(row.type, row.name).second) << row.name;
}

TEST(Commands, BelongToAClass) {
    for (const Command &row : commands)
        EXPECT_NE(find_class(row.type), nullptr) << row.type;
    EXPECT_EQ(find_class(0), nullptr);
    EXPECT_EQ(find_class(6), nullptr);
    EXPECT_EQ(find_class(10), nullptr);
}

TEST(Commands, AreFoundByNumber) {
    EXPECT_EQ(find_command(1, 1)->name, "get");
    EXPECT_EQ(find_command(7, 17)->name, "factory-reset-wo-wifi");
    EXPECT_EQ(find_command(2, -5)->name, "request");
    EXPECT_EQ(find_command(1, 0), nullptr);
    EXPECT_EQ(find_command(6, 1), nullptr);
}

TEST(Commands, WhoseAnswersCarryAText) {
    EXPECT_THAT(answered_with_text, testing::UnorderedElementsAre(1, 15, 19, 22, 23, 29, 30, 34));
}

TEST(Classes, HaveTheServersOfTheDaemon) {
    const auto server = [](int type) { return find_class(type)->server; };
    EXPECT_EQ(server(test::class_cfg), "ZAN_CFG");
    EXPECT_EQ(server(test::class_cwmp), "ZAN_CWMP");
    EXPECT_EQ(server(test::class_action), "ZAN_FAD");
    for (const int type : {test::class_registration, test::class_message, test::class_notify,
                           test::class_control, test::class_broadcast})
        EXPECT_EQ(server(type), "ZAN");
}

TEST(Answers, HaveTheCommandOfTheirRequestOrAcknowledge) {
    EXPECT_EQ(answer_command(test::class_cfg, 34), 34);
    EXPECT_EQ(answer_command(test::class_notify, 0), 0);
    EXPECT_EQ(answer_command(test::class_message, 1), 2);
    EXPECT_EQ(answer_command(test::class_broadcast, 3), 2);
}

TEST(Requests, CarryTheTimeInFourClasses) {
    for (int type = 0; type <= 10; ++type)
        EXPECT_EQ(is_timed(type), type == 4 || type == 5 || type == 8 || type == 9) << type;
}

} // namespace
} // namespace zan::wire
