// The registry of the asynchronous heap against a plain map. What programs see of it is golden.

#include "vm/async_heap.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

namespace {

// Walks a tree and proves everything that is said of it: links, flags, colours, equal black
// heights, and that each inner node names the two leaves around its gap.
struct tree_walk {
    std::vector<rbt_node *> leaves;

    static void expect_link(const rbt_node *child, const rbt_node *parent, bool left, bool root)
    {
        EXPECT_EQ(child->parent, parent);
        EXPECT_EQ(child->left_child, left);
        EXPECT_EQ(child->is_root, root);
        EXPECT_FALSE(child->is_header || (child->red && (root || parent->red || !child->inner)));
    }

    // Gives the black height.
    int walk(rbt_node *node)
    {
        if (!node->inner) {
            leaves.push_back(node);
            return 1;
        }
        expect_link(node->link0, node, true, false);
        expect_link(node->link1, node, false, false);
        const int left = walk(node->link0);
        EXPECT_EQ(node->key.leaf, leaves.back());
        const auto behind = leaves.size();
        const int right = walk(node->link1);
        EXPECT_EQ(node->size.leaf, leaves[behind]);
        EXPECT_EQ(left, right);
        return left + !node->red;
    }
};

using plain_registry = std::map<ULO, ULO>;

// The tree is sound, and its leaves and the ring are those expected, in order.
void expect_same(const plain_registry &expected)
{
    rbt_node *header = async_heap_tree;
    tree_walk tree;
    if (header->parent != header) {
        tree_walk::expect_link(header->parent, header, false, true);
        tree.walk(header->parent);
    }
    ASSERT_EQ(tree.leaves.size(), expected.size());
    auto at = expected.begin();
    const rbt_node *previous = header;
    for (const rbt_node *leaf : tree.leaves) {
        EXPECT_EQ(std::pair(leaf->key.number, leaf->size.number), std::pair(at->first, at->second));
        ASSERT_TRUE(previous->link0 == leaf && leaf->link1 == previous);
        previous = leaf;
        at++;
    }
    ASSERT_TRUE(previous->link0 == header && header->link1 == previous);
}

// Keys that are no addresses, in orders that a heap would not give.
TEST(TreeOrders, StaysATreeWhileKeysComeAndGo)
{
    std::mt19937 random(7);
    std::vector<ULO> orders[3];
    for (ULO i = 1; i <= 300; i++) orders[0].push_back(i * 16);
    orders[1].assign(orders[0].rbegin(), orders[0].rend());
    orders[2] = orders[0];
    std::shuffle(orders[2].begin(), orders[2].end(), random);
    delete_block(find_block(create_block(1))); // makes the header
    for (const auto &coming : orders)
        for (const auto &going : orders) {
            plain_registry expected;
            for (const ULO key : coming) {
                rbt_insert(async_heap_tree, key, expected[key] = key + 1);
                expect_same(expected);
            }
            for (const ULO key : going) {
                ASSERT_NE(find_block(key), nullptr);
                rbt_remove(find_block(key));
                expected.erase(key);
                expect_same(expected);
                EXPECT_EQ(find_block(key), nullptr);
            }
        }
}

} // namespace
