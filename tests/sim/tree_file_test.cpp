// SPDX-License-Identifier: MIT
#include "tree/tree_file.h"

#include "support/raw.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;
using zan::test::read_file;

std::string failure(std::string_view text) {
    const auto tree = parse_tree(text, "t.json");
    return tree ? "not refused" : tree.error().text;
}

std::string refusal(const Result<std::optional<std::string>> &result) {
    return result ? "not refused" : result.error().text;
}

TEST(ParseTree, InfersTypesFromPlainValues) {
    Tree tree = *parse_tree(R"({"s": "x", "i": 1, "n": -1, "u": 3000000000, "b": true})", "t");
    EXPECT_EQ(*tree.get("/b"), "1");
    EXPECT_EQ(*tree.get("/u"), "3000000000");
    EXPECT_TRUE(tree.set("/s", "anything"));
    EXPECT_EQ(refusal(tree.set("/i", "x")), "value is not int from -2147483648 to 2147483647: /i");
    EXPECT_EQ(refusal(tree.set("/n", "x")), "value is not int from -2147483648 to 2147483647: /n");
    EXPECT_EQ(refusal(tree.set("/u", "-1")), "value is not uint from 0 to 4294967295: /u");
    EXPECT_EQ(refusal(tree.set("/b", "2")), "value is not bool from 0 to 1: /b");
}

TEST(ParseTree, TakesTheProperties) {
    Tree tree = *parse_tree(R"({
        "max": {"$value": "abc", "$max": 3},
        "range": {"$value": "5", "$type": "int", "$range": [1, 8]},
        "enum": {"$value": 1, "$enum": [1, 2]},
        "ro": {"$value": "x", "$access": "ro"},
        "rw": {"$value": "x", "$access": "rw"}
    })",
                            "t");
    EXPECT_EQ(refusal(tree.set("/max", "abcd")), "value of 4 bytes is longer than 3: /max");
    EXPECT_EQ(refusal(tree.set("/range", "9")), "value is not int from 1 to 8: /range");
    EXPECT_EQ(refusal(tree.set("/enum", "3")), "value is none of 1, 2: /enum");
    EXPECT_EQ(refusal(tree.set("/ro", "y")), "read-only: /ro");
    EXPECT_TRUE(tree.set("/rw", "y"));
}

TEST(ParseTree, NumbersInstancesFromOneOrAsWritten) {
    const Tree tree = *parse_tree(R"({
        "list": [{"x": "a"}, {"x": "b"}],
        "sparse": {"$instances": {"3": {"x": "c"}, "7": {"x": "d"}}},
        "empty": []
    })",
                                  "t");
    EXPECT_EQ(*tree.get("/list:1/x"), "a");
    EXPECT_EQ(*tree.get("/list:2/x"), "b");
    EXPECT_EQ(*tree.get("/sparse:7/x"), "d");
    EXPECT_EQ(*tree.count("/sparse"), 2U);
    EXPECT_EQ(*tree.count("/empty"), 0U);
}

TEST(ParseTree, SaysWhereTheJsonIsWrong) {
    EXPECT_THAT(failure("{\n  \"a\": 1,\n  \"b\" 2\n}"), testing::StartsWith("t.json:3:7: "));
    EXPECT_THAT(failure(""), testing::StartsWith("t.json:1:1: "));
    EXPECT_THAT(failure("{\"a\": \"\xff\"}"), testing::StartsWith("t.json:1:"));
}

TEST(ParseTree, SaysWhichNodeIsWrong) {
    EXPECT_EQ(failure("[]"), "t.json: /: not an object");
    EXPECT_EQ(failure("1"), "t.json: /: not an object");
    EXPECT_EQ(failure(R"({"a": {"b": null}})"), "t.json: /a/b: not a text, number or boolean");
    EXPECT_EQ(failure(R"({"a": 1.5})"), "t.json: /a: not a whole number");
    EXPECT_EQ(failure(R"({"a": 4294967296})"),
              "t.json: /a: value is not uint from 0 to 4294967295");
    EXPECT_EQ(failure(R"({"a b": 1})"), "t.json: /: \"a b\" cannot be the name of a node");
    EXPECT_EQ(failure(R"({"": 1})"), "t.json: /: \"\" cannot be the name of a node");
    EXPECT_EQ(failure(R"({"a": {"$max": 1}})"),
              "t.json: /a: \"$max\" cannot be the name of a node");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$maximum": 3}})"),
              "t.json: /a: unknown property \"$maximum\"");
    EXPECT_EQ(failure(R"({"a": {"$value": [1]}})"), "t.json: /a: not a text, number or boolean");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$type": "float"}})"),
              "t.json: /a: $type is none of string, int, uint, bool");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$access": "no"}})"),
              "t.json: /a: $access is neither \"ro\" nor \"rw\"");
    EXPECT_EQ(failure(R"({"a": {"$value": "abc", "$max": 2}})"),
              "t.json: /a: value of 3 bytes is longer than 2");
    EXPECT_EQ(failure(R"({"a": {"$value": "", "$max": -1}})"),
              "t.json: /a: $max is not 0 to 35000");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$range": [1]}})"),
              "t.json: /a: $range is not [least, most]");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$range": [0, 18446744073709551615]}})"),
              "t.json: /a: $range is too large a number");
    EXPECT_EQ(failure(R"({"a": {"$value": "", "$max": 18446744073709551615}})"),
              "t.json: /a: $max is too large a number");
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$enum": []}})"),
              "t.json: /a: $enum is not a list of values");
    EXPECT_EQ(failure(R"({"a": [1]})"), "t.json: /a:1: not an object");
    EXPECT_EQ(failure(R"({"a": {"$instances": {"0": {}}}})"),
              "t.json: /a: \"0\" is not an instance number");
    EXPECT_EQ(failure(R"({"a": {"$instances": {"x": {}}}})"),
              "t.json: /a: \"x\" is not an instance number");
    EXPECT_EQ(failure(R"({"a": {"$instances": 3}})"),
              "t.json: /a: $instances is neither a list nor an object");
    EXPECT_EQ(failure(R"({"a": {"$instances": [], "$max": "x"}})"),
              "t.json: /a: $max is not a whole number");
    EXPECT_EQ(failure(R"({"zansim": {}})"), "t.json: /zansim: this branch is zansim's own");
}

TEST(ParseTree, RefusesTwoMembersOfOneName) {
    EXPECT_EQ(failure(R"({"a": {"b": 1, "b": 2}})"), "t.json: two members named \"b\"");
    EXPECT_TRUE(parse_tree(R"({"a": {"b": 1}, "c": {"b": 1}})", "t"));
}

TEST(ParseTree, RefusesBottomlessNesting) {
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += R"({"a":)";
    EXPECT_EQ(failure(text), "t.json: nested deeper than 64");
}

TEST(LoadTree, SaysWhyAFileCannotBeRead) {
    EXPECT_EQ(load_tree("/tmp/zan_none.json").error().text,
              "/tmp/zan_none.json: cannot be read: No such file or directory");
    EXPECT_EQ(load_tree("/tmp").error().text, "/tmp: cannot be read: Is a directory");
}

TEST(FormatTree, WritesWhatReadsBackTheSame) {
    const std::string text = R"({
  "s": "x",
  "i": 7,
  "u": {"$value": 7, "$type": "uint"},
  "b": true,
  "limited": {"$value": "x", "$access": "ro", "$max": 3},
  "choice": {"$value": 2, "$range": [0, 9], "$enum": [1, 2]},
  "digits": "007",
  "object": {
    "list": [
      {
        "x": 1
      }
    ],
    "none": []
  },
  "sparse": {
    "$instances": {
      "2": {
        "x": 1
      }
    },
    "$template": {
      "x": 0
    },
    "$max": 5,
    "$access": "ro"
  }
}
)";
    EXPECT_EQ(format_tree(*parse_tree(text, "t")), text);
}

TEST(FormatTree, KeepsInstanceNumbersWhenOneIsDeleted) {
    Tree tree = *parse_tree(R"({"a": [{"x": 1}, {"x": 2}, {"x": 3}]})", "t");
    ASSERT_TRUE(tree.remove("/a:2"));
    const Tree again = *parse_tree(format_tree(tree), "t");
    EXPECT_EQ(*again.get("/a:1/x"), "1");
    EXPECT_EQ(*again.get("/a:3/x"), "3");
    EXPECT_EQ(*again.count("/a"), 2U);
}

TEST(FormatTree, TurnsTheLastInstanceAloneIntoNoOther) {
    Tree tree = *parse_tree(R"({"a": [{"x": 1}, {"x": 2}]})", "t");
    ASSERT_TRUE(tree.remove("/a:1"));
    EXPECT_EQ(*parse_tree(format_tree(tree), "t")->get("/a:2/x"), "2");
}

TEST(FormatTree, WritesAFileWhateverTheBytes) {
    Tree tree = *parse_tree(R"({"a": ""})", "t");
    ASSERT_TRUE(tree.set("/a", "\xff\"\n"));
    EXPECT_EQ(*parse_tree(format_tree(tree), "t")->get("/a"), "?\"\n");
}

TEST(FormatTree, WritesTheExampleAsItStands) {
    const std::string text = read_file(ZAN_TEST_DEVICE_FILE);
    EXPECT_EQ(format_tree(*parse_tree(text, "device.json")), text);
}

TEST(FormatTree, KeepsTheAttributesOfEveryKindOfNode) {
    const std::string text = R"({
  "$attr": "root",
  "plain": {"$value": 5, "$attr": "a b"},
  "object": {
    "$attr": "object",
    "x": 1
  },
  "table": {
    "$instances": [
      {
        "$attr": "instance",
        "x": 1
      }
    ],
    "$attr": "table"
  }
}
)";
    const Tree tree = *parse_tree(text, "t");
    EXPECT_EQ(*tree.attributes("/"), "root");
    EXPECT_EQ(*tree.attributes("/plain"), "a b");
    EXPECT_EQ(*tree.attributes("/object"), "object");
    EXPECT_EQ(*tree.attributes("/object/x"), "");
    EXPECT_EQ(*tree.attributes("/table"), "table");
    EXPECT_EQ(*tree.attributes("/table:1"), "instance");
    EXPECT_EQ(format_tree(tree), text);
    EXPECT_EQ(failure(R"({"a": {"$value": 1, "$attr": 1}})"), "t.json: /a: $attr is not a text");
}

} // namespace
