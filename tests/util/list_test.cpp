// SPDX-License-Identifier: MIT
#include <zan.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace zan::test {
namespace {

struct Node {
    Node *next;
    Node *prev;
    int number;
    void *owned;
};

struct Links {
    Node *next;
    Node *prev;
};

// What the callback saw; the leak and address sanitizers see the rest.
const Node *list;
std::vector<int> released;
bool was_linked_to_itself;
bool was_out_of_the_list;

int release(void *node) {
    auto *const given = static_cast<Node *>(node);
    released.push_back(given->number);
    was_linked_to_itself = was_linked_to_itself && given->next == given && given->prev == given;
    was_out_of_the_list = was_out_of_the_list && list->next != given && list->next->prev == list;
    std::free(given->owned);
    return -1;
}

int keep_linked(void *node) {
    released.push_back(static_cast<Node *>(node)->number);
    return 1;
}

class List : public testing::Test {
protected:
    void add(int number, void *owned) {
        auto *const node = static_cast<Node *>(std::malloc(sizeof(Node)));
        *node = {as_node(), head.prev, number, owned};
        head.prev->next = node;
        head.prev = node;
    }
    void SetUp() override {
        head = {as_node(), as_node()};
        list = as_node();
        was_linked_to_itself = true;
        was_out_of_the_list = true;
    }
    bool is_empty() { return head.next == as_node() && head.prev == as_node(); }

    Links head{};

private:
    Node *as_node() { return reinterpret_cast<Node *>(&head); }
};

TEST_F(List, IsFreedFrontToBackWithWhatTheNodesOwn) {
    for (int number = 0; number < 100; ++number)
        add(number, std::malloc(10));
    EXPECT_EQ(free_all_dlist(&head, release), 1);
    EXPECT_TRUE(is_empty());
    ASSERT_EQ(released.size(), 100U);
    for (int number = 0; number < 100; ++number)
        EXPECT_EQ(released[static_cast<std::size_t>(number)], number);
    EXPECT_TRUE(was_linked_to_itself) << "a node is unlinked before it is handed out";
    EXPECT_TRUE(was_out_of_the_list) << "and its neighbours are joined";
}

TEST_F(List, IsFreedWithoutACallback) {
    add(1, nullptr);
    add(2, nullptr);
    EXPECT_EQ(free_all_dlist(&head, nullptr), 1);
    EXPECT_TRUE(is_empty());
}

TEST_F(List, MayBeFilledAndFreedAgain) {
    for (int round = 0; round < 3; ++round) {
        add(round, nullptr);
        EXPECT_EQ(free_all_dlist(&head, keep_linked), 1);
        EXPECT_TRUE(is_empty());
    }
    EXPECT_EQ(released, (std::vector<int>{0, 1, 2}));
}

TEST_F(List, MayBeEmptyOrMissing) {
    EXPECT_EQ(free_all_dlist(&head, release), 1);
    EXPECT_TRUE(is_empty());
    EXPECT_EQ(free_all_dlist(nullptr, release), 1);
    EXPECT_TRUE(released.empty());
}

} // namespace
} // namespace zan::test
