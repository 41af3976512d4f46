// SPDX-License-Identifier: MIT
#include "state/management.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

TEST(Management, TellsWhatIsWrongWithAScript) {
    struct Case {
        std::string text;
        const char *complaint;
    };
    const std::string longest(35000, 'x');
    const Case cases[] = {
        {"{}", "s: not a list of answers"},
        {"[1]", "s: answer 1: not an object"},
        {R"([{}, {"command": "x"}])", "s: answer 2: command is not a number of 32 bits"},
        {R"([{"result": 2147483648}])", "s: answer 1: result is not a number of 32 bits"},
        {R"([{"arg": -2147483649}])", "s: answer 1: arg is not a number of 32 bits"},
        {R"([{"result": 18446744073709551615}])", "s: answer 1: result is not a number of 32 bits"},
        {R"([{"result": 1e999}])",
         "s: [json.exception.out_of_range.406] number overflow parsing '1e999'"},
        {R"([{"arg": 1.5}])", "s: answer 1: arg is not a number of 32 bits"},
        {R"([{"text": 5}])", "s: answer 1: text is not a text"},
        {R"([{"request": null}])", "s: answer 1: request is not a text"},
        {R"([{"hex": "0"}])", "s: answer 1: hex is not pairs of hexadecimal digits"},
        {R"([{"hex": "0x"}])", "s: answer 1: hex is not pairs of hexadecimal digits"},
        {R"([{"hex": "-1"}])", "s: answer 1: hex is not pairs of hexadecimal digits"},
        {R"([{"hex": "", "text": ""}])", "s: answer 1: text and hex"},
        {R"([{"answer": ""}])", "s: answer 1: unknown member \"answer\""},
        {R"([{"text": ")" + longest + "x\"}]", "s: answer 1: longer than 35000 bytes"},
    };
    for (const Case &one : cases) {
        Management management;
        const auto done = management.parse(one.text, "s");
        EXPECT_EQ(done ? "not refused" : done.error().text, one.complaint);
    }
    Management management;
    EXPECT_TRUE(management.parse(R"([{"text": ")" + longest + "\"}]", "s"));
    const auto broken = management.parse("[", "s");
    ASSERT_FALSE(broken);
    EXPECT_TRUE(broken.error().text.starts_with("s: ")) << broken.error().text;
    EXPECT_EQ(management.load("/none").error().text,
              "/none: cannot be read: No such file or directory");
}

TEST(Management, KeepsAtMost1024WhoWait) {
    Management management;
    const Requester requester{.peer = {nullptr, 1}, .name = "a", .type = 2, .cmd = 5};
    for (int i = 0; i < 1024; ++i) {
        ASSERT_TRUE(management.room());
        management.expect(requester, {nullptr, 2});
    }
    EXPECT_EQ(management.room().error().text,
              "already 1024 requests to ZAN_CWMP without an answer");
    EXPECT_EQ(management.forget({nullptr, 2}).size(), 1024U);
    EXPECT_TRUE(management.room());
    management.expect(requester, {nullptr, 2});
    // Who waited and left is not answered.
    EXPECT_EQ(management.forget({nullptr, 1}).size(), 0U);
    EXPECT_FALSE(management.take(5, ""));
}

} // namespace
