// The registry of the asynchronous heap: the tree against a plain set, and what a descriptor may
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
class tree_walk {
public:
    explicit tree_walk(rbt_node *header) : header_(header)
    {
        if (header->parent == header) return;
        expect_link(header->parent, header, false, true);
        walk(header->parent);
    }

    // Leaves in the order of the tree and of the ring.
    std::vector<rbt_node *> leaves;

    void expect_ring() const
    {
        const rbt_node *at = header_;
        for (const rbt_node *leaf : leaves) {
            ASSERT_EQ(at->link0, leaf);
            ASSERT_EQ(leaf->link1, at);
            at = leaf;
        }
        ASSERT_EQ(at->link0, header_);
        ASSERT_EQ(header_->link1, at);
    }

private:
    rbt_node *header_;

    static void expect_link(const rbt_node *child, const rbt_node *parent, bool left, bool root)
    {
        EXPECT_EQ(child->parent, parent);
        EXPECT_EQ(child->left_child, left);
        EXPECT_EQ(child->is_root, root);
        EXPECT_EQ(child->is_header, 0);
        EXPECT_FALSE(child->red && (root || parent->red));
    }

    // Gives the black height.
    int walk(rbt_node *node)
    {
        if (!node->inner) {
            EXPECT_EQ(node->red, 0);
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

void expect_same(const plain_registry &expected)
{
    tree_walk walk(async_heap_tree);
    walk.expect_ring();
    ASSERT_EQ(walk.leaves.size(), expected.size());
    auto at = expected.begin();
    for (const rbt_node *leaf : walk.leaves) {
        EXPECT_EQ(leaf->key.number, at->first);
        EXPECT_EQ(leaf->size.number, (at++)->second);
    }
}

// Keys that are no addresses: the tree alone, in orders that a heap would not give.
class TreeOrders : public testing::TestWithParam<int> {
protected:
    std::mt19937 random{7};
    std::vector<ULO> keys(int order)
    {
        std::vector<ULO> list;
        for (ULO i = 1; i <= 300; i++) list.push_back(i * 16);
        if (order == 1) std::reverse(list.begin(), list.end());
        if (order == 2) std::shuffle(list.begin(), list.end(), random);
        return list;
    }
    void SetUp() override
    {
        if (async_heap_tree == nullptr) delete_block(find_block(create_block(1)));
    }
};

TEST_P(TreeOrders, StaysATreeWhileKeysComeAndGo)
{
    plain_registry expected;
    for (const ULO key : keys(GetParam() % 3)) {
        rbt_insert(async_heap_tree, key, key + 1);
        expected[key] = key + 1;
        expect_same(expected);
    }
    for (const ULO key : keys(GetParam() / 3)) {
        rbt_node *leaf = find_block(key);
        ASSERT_NE(leaf, nullptr);
        EXPECT_EQ(leaf->size.number, key + 1);
        rbt_remove(leaf);
        expected.erase(key);
        expect_same(expected);
        EXPECT_EQ(find_block(key), nullptr);
    }
}
INSTANTIATE_TEST_SUITE_P(RisingFallingShuffled, TreeOrders, testing::Range(0, 9));

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
    // Follows the rule of sizes: one that stays in place keeps its recorded size.
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
        const auto block = *std::next(live.begin(), random() % live.size());
        ASSERT_EQ(find_block(block.first)->size.number, block.second);
        memset(block_bytes(find_block(block.first)), step, block.second);
        for (const ULO off : {ULO(1), ULO(8)}) // the nearest next descriptor is 16 away
            ASSERT_EQ(find_block(block.first + off), nullptr);
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
    ASSERT_NE(block, nullptr);
    const std::string_view bytes(block_bytes(block), block->size.number);
    EXPECT_EQ(bytes.find_first_not_of('x'), 64u);
    EXPECT_EQ(bytes.find_first_not_of('\0', 64), bytes.npos);
}

TEST_F(Blocks, StayingInPlaceKeepsTheRecordedSize)
{
    const ULO block = create(160);
    EXPECT_EQ(resize(block, 16), block);
    EXPECT_EQ(find_block(block)->size.number, 160u);
    memset(block_bytes(find_block(block)), 'x', 160);
    EXPECT_EQ(resize(block, 160), block);
    EXPECT_EQ(resize(block, 0), 0u);
    EXPECT_EQ(resize(block, ~ULO(0)), 0u);
    EXPECT_EQ(find_block(block)->size.number, 160u);
}

TEST_F(Blocks, ReplicaIsAnotherBlockWithTheSameBytes)
{
    const ULO block = create(20);
    memcpy(block_bytes(find_block(block)), "twenty bytes of text", 20);
    const ULO copy = replicate_block(find_block(block));
    live[copy] = 20;
    block_bytes(find_block(block))[0] = 'T';
    EXPECT_EQ(std::string(block_bytes(find_block(copy)), 20), "twenty bytes of text");
}

TEST_F(Blocks, NoMemoryGivesNoDescriptor)
{
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
