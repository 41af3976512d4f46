// SPDX-License-Identifier: MIT
#include "tree/tree.h"

#include "tree/tree_file.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

constexpr char tree_text[] = R"({
  "sys": {
    "name": "router",
    "serial": {"$value": "4711", "$access": "ro"},
    "level": 4,
    "led": {"on": true, "serial": {"$value": 1, "$access": "ro"}},
    "user": {"$instances": [{"name": "a b"}, {"name": "", "more": {"x": 1}}],
             "$template": {"name": "new"}, "$max": 3},
    "port": {"$instances": [{"up": true}], "$template": {"up": false}, "$access": "ro"},
    "plain": [{"x": 1}]
  }
})";

class TreeTest : public testing::Test {
protected:
    TreeTest() : tree(*parse_tree(tree_text, "test")) {}

    template<typename T> static std::string refusal(const Result<T> &result) {
        return result ? "not refused"
                      : std::to_string(result.error().code) + ' ' + result.error().text;
    }

    Tree tree;
};

TEST_F(TreeTest, CountsItsParameters) {
    EXPECT_EQ(tree.parameter_count(), 10U);
}

TEST_F(TreeTest, ReadsValues) {
    EXPECT_EQ(*tree.get("/sys/name"), "router");
    EXPECT_EQ(*tree.get("/sys/user:1/name"), "a b");
    EXPECT_EQ(*tree.get("/sys/user:2/more/x"), "1");
}

TEST_F(TreeTest, RefusesPathsThatLeadToNoValue) {
    EXPECT_EQ(refusal(tree.get("/sys/nope")), "-101 no such node: /sys/nope");
    EXPECT_EQ(refusal(tree.get("/sys/name/deeper")), "-101 no such node: /sys/name/deeper");
    EXPECT_EQ(refusal(tree.get("/sys/user:3/name")), "-102 no such instance: /sys/user:3/name");
    EXPECT_EQ(refusal(tree.get("/sys/user/name")), "-102 instance number missing: /sys/user/name");
    EXPECT_EQ(refusal(tree.get("/sys/led:1/on")),
              "-110 not a multi-instance object: /sys/led:1/on");
    EXPECT_EQ(refusal(tree.get("/sys/name:1")), "-110 not a multi-instance object: /sys/name:1");
    EXPECT_EQ(refusal(tree.get("/sys")), "-109 not a value: /sys");
    EXPECT_EQ(refusal(tree.get("/sys/user")), "-109 not a value: /sys/user");
    EXPECT_EQ(refusal(tree.get("/sys/user:1")), "-109 not a value: /sys/user:1");
    EXPECT_EQ(refusal(tree.get("/")), "-109 not a value: /");
}

TEST_F(TreeTest, CountsInstances) {
    EXPECT_EQ(*tree.count("/sys/user"), 2U);
    EXPECT_EQ(refusal(tree.count("/sys")), "-110 not a multi-instance object: /sys");
    EXPECT_EQ(refusal(tree.count("/sys/user:1")), "-110 not a multi-instance object: /sys/user:1");
    EXPECT_EQ(refusal(tree.count("/sys/name")), "-110 not a multi-instance object: /sys/name");
}

TEST_F(TreeTest, RendersTheParametersOfEachInstance) {
    EXPECT_EQ(*tree.render("/sys/user"), "1 name=a%20b\n2 name=%00\n");
    EXPECT_EQ(refusal(tree.render("/sys/led")), "-110 not a multi-instance object: /sys/led");
}

TEST_F(TreeTest, StoresAValueAndSaysWhetherItIsAnother) {
    EXPECT_EQ(*tree.set("/sys/name", "two words"), "two words");
    EXPECT_EQ(*tree.get("/sys/name"), "two words");
    EXPECT_EQ(*tree.set("/sys/name", "two words"), std::nullopt);
    EXPECT_EQ(*tree.set("/sys/level", "05"), "5");
    EXPECT_EQ(*tree.set("/sys/level", "5"), std::nullopt);
}

TEST_F(TreeTest, RefusesToStoreWhatMayNotBe) {
    EXPECT_EQ(refusal(tree.set("/sys/serial", "1")), "-103 read-only: /sys/serial");
    EXPECT_EQ(refusal(tree.set("/sys/led", "1")), "-109 not a value: /sys/led");
    EXPECT_EQ(refusal(tree.set("/sys/nope", "1")), "-101 no such node: /sys/nope");
    EXPECT_EQ(refusal(tree.set("/sys/level", "x")),
              "-105 value is not int from -2147483648 to 2147483647: /sys/level");
    EXPECT_EQ(*tree.get("/sys/level"), "4");
}

TEST_F(TreeTest, AddsInstancesFromTheTemplateUnderTheLowestFreeNumber) {
    EXPECT_EQ(*tree.add("/sys/user"), "/sys/user:3");
    EXPECT_EQ(*tree.get("/sys/user:3/name"), "new");
    ASSERT_TRUE(tree.remove("/sys/user:1"));
    EXPECT_EQ(*tree.get("/sys/user:3/name"), "new");
    EXPECT_EQ(*tree.add("/sys/user"), "/sys/user:1");
    EXPECT_EQ(*tree.get("/sys/user:1/name"), "new");
}

TEST_F(TreeTest, AddsAnInstanceUnderAGivenNumber) {
    EXPECT_EQ(*tree.add("/sys/user:7"), "/sys/user:7");
    EXPECT_EQ(*tree.count("/sys/user"), 3U);
    EXPECT_EQ(*tree.get("/sys/user:7/name"), "new");
}

TEST_F(TreeTest, InstancesOfOneTemplateDoNotShareTheirValues) {
    ASSERT_TRUE(tree.remove("/sys/user:1"));
    ASSERT_TRUE(tree.add("/sys/user"));
    ASSERT_TRUE(tree.add("/sys/user"));
    ASSERT_TRUE(tree.set("/sys/user:1/name", "first"));
    EXPECT_EQ(*tree.get("/sys/user:3/name"), "new");
}

TEST_F(TreeTest, RefusesInstancesThatMayNotBeAdded) {
    EXPECT_EQ(refusal(tree.add("/sys/user:2")), "-112 instance exists: /sys/user:2");
    EXPECT_EQ(refusal(tree.add("/sys/port")), "-103 read-only: /sys/port");
    EXPECT_EQ(refusal(tree.add("/sys/plain")), "-111 no template for a new instance: /sys/plain");
    EXPECT_EQ(refusal(tree.add("/sys/led")), "-110 not a multi-instance object: /sys/led");
    EXPECT_EQ(refusal(tree.add("/")), "-110 not a multi-instance object: /");
    EXPECT_EQ(refusal(tree.add("/nope")), "-101 no such node: /nope");
    ASSERT_TRUE(tree.add("/sys/user"));
    EXPECT_EQ(refusal(tree.add("/sys/user")), "-111 already 3 instances: /sys/user");
}

TEST_F(TreeTest, RemovesInstancesAndKeepsTheNumbersOfTheOthers) {
    ASSERT_TRUE(tree.remove("/sys/user:1"));
    EXPECT_EQ(*tree.count("/sys/user"), 1U);
    EXPECT_EQ(*tree.get("/sys/user:2/more/x"), "1");
    EXPECT_EQ(refusal(tree.get("/sys/user:1/name")), "-102 no such instance: /sys/user:1/name");
}

TEST_F(TreeTest, RemovesParametersObjectsAndTables) {
    ASSERT_TRUE(tree.remove("/sys/user:2/more/x"));
    ASSERT_TRUE(tree.remove("/sys/user:2/more"));
    ASSERT_TRUE(tree.remove("/sys/name"));
    EXPECT_EQ(refusal(tree.get("/sys/name")), "-101 no such node: /sys/name");
    EXPECT_EQ(*tree.get("/sys/level"), "4");
    ASSERT_TRUE(tree.remove("/sys/user"));
    EXPECT_EQ(refusal(tree.count("/sys/user")), "-101 no such node: /sys/user");
}

TEST_F(TreeTest, KeepsWhatIsReadOnly) {
    EXPECT_EQ(refusal(tree.remove("/sys/serial")), "-103 read-only: /sys/serial");
    EXPECT_EQ(refusal(tree.remove("/sys/led")), "-103 read-only: /sys/led");
    EXPECT_EQ(refusal(tree.remove("/sys/port:1")), "-103 read-only: /sys/port:1");
    EXPECT_EQ(refusal(tree.remove("/sys/port")), "-103 read-only: /sys/port");
    EXPECT_EQ(refusal(tree.remove("/sys")), "-103 read-only: /sys");
    EXPECT_EQ(refusal(tree.remove("/")), "-103 read-only: /");
    EXPECT_EQ(tree.parameter_count(), 10U);
}

std::string lines(const Result<std::vector<Parameter>> &parameters) {
    return parameters ? parameter_lines(*parameters) : parameters.error().text;
}

TEST_F(TreeTest, ListsWhatLiesBelowAPath) {
    EXPECT_EQ(lines(tree.list("/sys/user")), "/sys/user:1/name=a b\n/sys/user:2/name=\n"
                                             "/sys/user:2/more/x=1\n");
    EXPECT_EQ(lines(tree.list("/sys/user", 1)), "/sys/user:1/name=a b\n/sys/user:2/name=\n");
    EXPECT_EQ(lines(tree.list("/sys/user:2")), "/sys/user:2/name=\n/sys/user:2/more/x=1\n");
    EXPECT_EQ(lines(tree.list("/sys/level", 1)), "/sys/level=4\n");
    EXPECT_EQ(tree.list("/")->size(), 10U);
    EXPECT_EQ(tree.list("/", 1)->size(), 0U);
    EXPECT_EQ(lines(tree.list("/", 2)), "/sys/name=router\n/sys/serial=4711\n/sys/level=4\n");
    EXPECT_EQ(lines(tree.list("/nope")), "no such node: /nope");
}

TEST_F(TreeTest, KeepsControlCharactersOfAListOnTheirLine) {
    ASSERT_TRUE(tree.set("/sys/name", "a\nb\x01"));
    EXPECT_EQ(lines(tree.list("/sys/name")), "/sys/name=a\\nb\\x01\n");
}

TEST_F(TreeTest, KeepsAttributesOfNodesThatExist) {
    ASSERT_TRUE(tree.set_attributes("/sys/serial", "x y"));
    EXPECT_EQ(*tree.attributes("/sys/serial"), "x y");
    EXPECT_EQ(*tree.attributes("/sys/name"), "");
    EXPECT_EQ(refusal(tree.attributes("/sys/nope")), "-101 no such node: /sys/nope");
    EXPECT_EQ(refusal(tree.set_attributes("/sys/user:7", "x")),
              "-102 no such instance: /sys/user:7");
}

TEST_F(TreeTest, IsResetToAnother) {
    const Tree defaults = tree;
    ASSERT_TRUE(tree.set("/sys/name", "attic"));
    ASSERT_TRUE(tree.set("/sys/user:1/name", "c"));
    ASSERT_TRUE(tree.remove("/sys/user:2"));
    ASSERT_TRUE(tree.add("/sys/user:3"));
    ASSERT_TRUE(tree.remove("/sys/level"));
    // Only what the path covers.
    ASSERT_TRUE(tree.reset("/sys/user:2", defaults));
    EXPECT_EQ(*tree.get("/sys/user:2/more/x"), "1");
    EXPECT_EQ(*tree.get("/sys/user:1/name"), "c");
    ASSERT_TRUE(tree.reset("/sys/user", defaults));
    EXPECT_EQ(*tree.get("/sys/user:1/name"), "a b");
    EXPECT_EQ(*tree.count("/sys/user"), 2U);
    ASSERT_TRUE(tree.reset("/sys/level", defaults));
    EXPECT_EQ(*tree.get("/sys/level"), "4");
    EXPECT_EQ(*tree.get("/sys/name"), "attic");
    ASSERT_TRUE(tree.reset("/", defaults));
    EXPECT_EQ(*tree.get("/sys/name"), "router");
}

TEST_F(TreeTest, IsNotResetWhereTheDefaultsHaveNothingOrThePathHasNoParent) {
    const Tree defaults = tree;
    ASSERT_TRUE(tree.add("/sys/user:3"));
    EXPECT_EQ(refusal(tree.reset("/sys/user:3", defaults)), "-102 no such instance: /sys/user:3");
    EXPECT_EQ(refusal(tree.reset("/sys/nope", defaults)), "-101 no such node: /sys/nope");
    EXPECT_EQ(refusal(tree.reset("sys", defaults)),
              "-116 bad path (it does not start with a slash): sys");
    ASSERT_TRUE(tree.remove("/sys/user"));
    EXPECT_EQ(refusal(tree.reset("/sys/user:1", defaults)), "-101 no such node: /sys/user:1");
    EXPECT_EQ(refusal(tree.reset("/sys/user:1/name", defaults)),
              "-101 no such node: /sys/user:1/name");
}

} // namespace
