// SPDX-License-Identifier: MIT
#include "zan.h"

#include <cstdlib>

namespace zan {
namespace {

// What every node of a caller's list begins with.
struct Node {
    Node *next;
    Node *prev;
};

} // namespace
} // namespace zan

using namespace zan;

int free_all_dlist(void *head, int (*release)(void *node)) {
    auto *const sentinel = static_cast<Node *>(head);
    if (sentinel == nullptr)
        return 1;
    while (sentinel->next != sentinel) {
        Node *const node = sentinel->next;
        sentinel->next = node->next;
        node->next->prev = sentinel;
        node->next = node;
        node->prev = node;
        if (release != nullptr)
            release(node);
        std::free(node);
    }
    return 1;
}
