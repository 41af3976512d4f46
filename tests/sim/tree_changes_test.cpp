// SPDX-License-Identifier: MIT
#include "tree/tree_changes.h"

#include "tree/tree_file.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

// A line for each change: "value /a 5".
std::string changes(const char *before, const char *after) {
    constexpr const char *kinds[] = {"", "value", "added", "deleted"};
    std::string text;
    for (const TreeChange &change :
         changes_between(*parse_tree(before, "before"), *parse_tree(after, "after"))) {
        text += std::string(kinds[static_cast<int>(change.kind)]) + ' ' + change.path;
        text += change.kind == ChangeKind::value ? ' ' + change.value + '\n' : "\n";
    }
    return text;
}

TEST(TreeChanges, AreNoneBetweenEqualTrees) {
    const char *const tree = R"({"a": 1, "b": {"c": [{"d": "x"}]}})";
    EXPECT_EQ(changes(tree, tree), "");
}

TEST(TreeChanges, TellOfValuesThatAreOthersOrNew) {
    EXPECT_EQ(changes(R"({"a": 1, "b": {"c": "x"}})", R"({"a": 2, "b": {"c": "x", "d": "y"}})"),
              "value /a 2\nvalue /b/d y\n");
    EXPECT_EQ(changes(R"({})", R"({"b": {"c": "x", "t": [{"d": 1}]}})"),
              "value /b/c x\nadded /b/t:1\n");
}

TEST(TreeChanges, TellOfInstancesOnceEach) {
    EXPECT_EQ(changes(R"({"t": [{"x": 1}, {"x": 2}]})",
                      R"({"t": {"$instances": {"2": {"x": 3}, "5": {"x": 1}}}})"),
              "deleted /t:1\nvalue /t:2/x 3\nadded /t:5\n");
}

TEST(TreeChanges, TellOfNodesThatHaveGoneOrBecameOfAnotherKind) {
    EXPECT_EQ(changes(R"({"a": 1, "b": {"c": 1}})", R"({"a": 1})"), "deleted /b\n");
    EXPECT_EQ(changes(R"({"a": 1})", R"({"a": {"b": 2}})"), "deleted /a\nvalue /a/b 2\n");
    EXPECT_EQ(changes(R"({"a": {"b": 2}})", R"({"a": 1})"), "deleted /a\nvalue /a 1\n");
}

} // namespace
