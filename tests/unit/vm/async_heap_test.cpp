// The registry of the asynchronous heap: the tree against a plain map, and what a descriptor may
// do.

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

// Keys that are no addresses: the tree alone, in orders that a heap would not give.
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

class Blocks : public testing::Test {
protected:
    plain_registry live;
    std::mt19937 random{11};

    ULO any() { return std::next(live.begin(), random() % live.size())->first; }
    ULO create(ULO size)
    {
        const ULO made = create_block(size);
        live[made] = size;
        return made;
    }
    void remove(ULO descriptor)
    {
        delete_block(find_block(descriptor));
        live.erase(descriptor);
    }
    // One that stays in place keeps its recorded size.
    ULO resize(ULO descriptor, ULO size)
    {
        const ULO now = reallocate_block(find_block(descriptor), size);
        if (now != 0 && now != descriptor) {
            live.erase(descriptor);
            live[now] = size;
        }
        return now;
    }
    void TearDown() override
    {
        while (!live.empty()) remove(live.begin()->first);
    }
};

TEST_F(Blocks, RandomLifeKeepsRegistryAndNeighboursApart)
{
    const ULO before = async_heap_blocks;
    for (int step = 0; step < 4000; step++) {
        const auto dice = random() % 10;
        if (live.empty() || dice < 5)
            create(random() % 200);
        else if (dice < 7)
            resize(any(), 1 + random() % 400);
        else
            remove(any());
        if (step % 97 == 0) expect_same(live);
        if (live.empty()) continue;
        const auto [descriptor, size] = *std::next(live.begin(), random() % live.size());
        ASSERT_EQ(find_block(descriptor)->size.number, size);
        memset(block_bytes(find_block(descriptor)), step, size);
        for (const ULO off : {ULO(1), ULO(8)}) // the nearest next descriptor is 16 away
            ASSERT_EQ(find_block(descriptor + off), nullptr);
    }
    EXPECT_EQ(async_heap_blocks, before + live.size());
    expect_same(live);
}

TEST_F(Blocks, NewBytesAreZeroAndOldOnesMoveAlong)
{
    const ULO first = create(64);
    EXPECT_EQ(std::string(block_bytes(find_block(first)), 64), std::string(64, '\0'));
    memset(block_bytes(find_block(first)), 'x', 64);
    ULO now = first;
    for (ULO size = 1024; now == first && size < (ULO(1) << 30); size *= 2) {
        create(16); // in the way
        now = resize(first, size);
    }
    ASSERT_NE(now, first);
    EXPECT_EQ(find_block(first), nullptr);
    const rbt_node *block = find_block(now);
    const std::string_view bytes(block_bytes(block), block->size.number);
    EXPECT_EQ(bytes.find_first_not_of('x'), 64u);
    EXPECT_EQ(bytes.find_first_not_of('\0', 64), bytes.npos);
    // A replica has bytes of its own.
    const ULO copy = replicate_block(block);
    live[copy] = bytes.size();
    block_bytes(block)[0] = 'T';
    EXPECT_EQ(std::string(block_bytes(find_block(copy)), 64), std::string(64, 'x'));
}

TEST_F(Blocks, StayingInPlaceKeepsTheRecordedSize)
{
    const ULO block = create(160);
    EXPECT_EQ(resize(block, 16), block);
    memset(block_bytes(find_block(block)), 'x', find_block(block)->size.number);
    EXPECT_EQ(resize(block, 160), block);
    EXPECT_EQ(resize(block, 0), 0u);
    EXPECT_EQ(resize(block, ~ULO(0)), 0u);
    EXPECT_EQ(find_block(block)->size.number, 160u);
    EXPECT_EQ(create_block(~ULO(0)), 0u);
    EXPECT_EQ(find_block(0), nullptr);
    EXPECT_NE(create(0), 0u);
}

TEST(BlockRanges, NeverWrap)
{
    rbt_node block = {};
    const auto word = [&](ULO size, SLO index) {
        block.size.number = size;
        return holds_word(&block, index);
    };
    const auto bytes = [&](ULO size, SLO offset, SLO length) {
        block.size.number = size;
        return holds_bytes(&block, offset, length);
    };
    EXPECT_TRUE(word(16, 0) && word(16, 1) && word(15, 0));
    EXPECT_FALSE(word(16, 2) || word(15, 1) || word(7, 0) || word(16, -1) || word(0, 0));
    EXPECT_FALSE(word(16, INT64_MAX) || word(16, INT64_MIN) || word(16, SLO(1) << 61));
    EXPECT_TRUE(bytes(16, 12, 4) && bytes(16, 16, 0) && bytes(16, 0, 16) && bytes(0, 0, 0));
    EXPECT_FALSE(bytes(16, 13, 4) || bytes(16, 17, 0) || bytes(16, -1, 1) || bytes(16, 0, 17));
    EXPECT_FALSE(bytes(16, INT64_MAX, INT64_MAX) || bytes(16, 1, INT64_MAX));
    EXPECT_TRUE(bytes(16, 0, -1) && bytes(16, 16, INT64_MIN));
}

} // namespace
