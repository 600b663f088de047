// The tree of live blocks and the blocks themselves. Insertion and removal are those of a red-black
// tree whose leaves are all black; what is particular is the care for the two leaves that an inner
// node names. Rotations leave those alone: they keep the order of the gaps.

#include "vm/async_heap.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "strings/fatal.h"

FATAL_SITE(RBT_NEW_NODE, "kestrin", "_rbt_new_node", 1)

rbt_node *async_heap_tree = nullptr;
ULO async_heap_blocks = 0;

namespace {

constexpr const CHR *NO_NODE_TEXT = "RED-BLACK TREE FATAL ERROR: memory allocation failure.";

rbt_node *new_node()
{
    auto *node = static_cast<rbt_node *>(calloc(1, sizeof(rbt_node)));
    if (node == nullptr) fatal(site::RBT_NEW_NODE, NO_NODE_TEXT);
    return node;
}

rbt_node *new_header()
{
    rbt_node *header = new_node();
    header->link0 = header->link1 = header->parent = header;
    header->is_header = 1;
    return header;
}

// -- Links -------------------------------------------------------------------------------------

void set_root(rbt_node *header, rbt_node *node)
{
    header->parent = node;
    node->parent = header;
    node->is_root = 1;
    node->left_child = 0;
}

rbt_node *&child_of(rbt_node *node, bool left) { return left ? node->link0 : node->link1; }

void set_child(rbt_node *parent, rbt_node *child, bool left)
{
    child_of(parent, left) = child;
    child->parent = parent;
    child->is_root = 0;
    child->left_child = left;
}

// Lets `node` stand where `old` does.
void put_in_place_of(rbt_node *old, rbt_node *node)
{
    if (old->is_root)
        set_root(old->parent, node);
    else
        set_child(old->parent, node, old->left_child);
}

rbt_node *sibling_of(const rbt_node *node) { return child_of(node->parent, !node->left_child); }

// Moves a child up over its parent.
void rotate_up(rbt_node *child)
{
    rbt_node *parent = child->parent;
    const bool left = child->left_child;
    put_in_place_of(parent, child);
    set_child(parent, child_of(child, !left), left);
    set_child(child, parent, !left);
}

// -- Ring and gaps -----------------------------------------------------------------------------

void link_before(rbt_node *next, rbt_node *leaf)
{
    // In the header the same two links are the first and the last leaf.
    rbt_node *previous = next->link1;
    leaf->link0 = next;
    leaf->link1 = previous;
    previous->link0 = leaf;
    next->link1 = leaf;
}

// The leaf below `node` that is the first of that subtree, or the last: the gap beside it has a new
// neighbour.
void name_end(const rbt_node *node, rbt_node *leaf, bool first)
{
    while (!node->is_root && bool(node->left_child) == first) node = node->parent;
    if (!node->is_root) (first ? node->parent->size : node->parent->key).leaf = leaf;
}

// -- Balance -----------------------------------------------------------------------------------

// A red node has come in. While its parent is red too, the fault moves up or is rotated away.
void mend_red(rbt_node *node)
{
    while (!node->is_root && node->parent->red) {
        rbt_node *parent = node->parent, *grandparent = parent->parent;
        rbt_node *uncle = sibling_of(parent);
        if (!uncle->red) {
            rbt_node *middle = node->left_child == parent->left_child ? parent : node;
            if (middle == node) rotate_up(node);
            rotate_up(middle);
            middle->red = 0;
            grandparent->red = 1;
            return;
        }
        parent->red = uncle->red = 0;
        grandparent->red = 1;
        node = grandparent;
    }
    if (node->is_root) node->red = 0;
}

// Gives the black that is missing below `node` from its sibling, which is inner and black. True
// when nothing is missing any more.
bool borrow_black(rbt_node *node, rbt_node *sibling)
{
    rbt_node *parent = node->parent;
    rbt_node *near = child_of(sibling, node->left_child);
    rbt_node *far = child_of(sibling, !node->left_child);
    if (!near->red && !far->red) {
        sibling->red = 1;
        return false;
    }
    if (!far->red) {
        rotate_up(near);
        far = sibling;
        sibling = near;
    }
    rotate_up(sibling);
    sibling->red = parent->red;
    parent->red = far->red = 0;
    return true;
}

// The paths through `node` have one black too few.
void mend_black(rbt_node *node)
{
    while (!node->is_root && !node->red) {
        rbt_node *sibling = sibling_of(node);
        if (sibling->red) {
            sibling->red = 0;
            node->parent->red = 1;
            rotate_up(sibling);
            sibling = sibling_of(node);
        }
        if (borrow_black(node, sibling)) return;
        node = node->parent;
    }
    node->red = 0;
}

// The leaf in front of which a key goes; the last leaf if it goes behind that one.
rbt_node *place_of(const rbt_node *header, ULO key)
{
    if (key > header->link1->key.number) return header->link1;
    rbt_node *node = header->parent;
    while (node->inner) node = key < node->key.leaf->key.number ? node->link0 : node->link1;
    return node;
}

// A new red inner node takes the place of `old`, with both leaves below it.
rbt_node *split(rbt_node *old, rbt_node *below, rbt_node *above)
{
    rbt_node *gap = new_node();
    gap->inner = gap->red = 1;
    gap->key.leaf = below;
    gap->size.leaf = above;
    put_in_place_of(old, gap);
    set_child(gap, below, true);
    set_child(gap, above, false);
    return gap;
}

constexpr ULO LARGEST_BLOCK = INT64_MAX;

// Memory for a block; a block of no bytes has an address as well.
void *zeros(ULO size)
{
    if (size > LARGEST_BLOCK) return nullptr;
    return calloc(1, std::max<ULO>(size, 1));
}

ULO descriptor_of(const void *bytes) { return reinterpret_cast<ULO>(bytes); }

ULO enter_block(const void *bytes, ULO size)
{
    if (async_heap_tree == nullptr) async_heap_tree = new_header();
    async_heap_blocks++;
    rbt_insert(async_heap_tree, descriptor_of(bytes), size);
    return descriptor_of(bytes);
}

} // namespace

void rbt_insert(rbt_node *header, ULO key, ULO size)
{
    rbt_node *leaf = new_node();
    leaf->key.number = key;
    leaf->size.number = size;
    if (header->parent == header) {
        link_before(header, leaf);
        set_root(header, leaf);
        return;
    }
    rbt_node *place = place_of(header, key);
    const bool behind = key > place->key.number;
    link_before(behind ? header : place, leaf);
    rbt_node *gap = behind ? split(place, place, leaf) : split(place, leaf, place);
    if (!behind) name_end(gap, leaf, true); // behind the last leaf there is no further gap
    mend_red(gap);
}

void rbt_remove(rbt_node *leaf)
{
    rbt_node *next = leaf->link0, *previous = leaf->link1, *parent = leaf->parent;
    next->link1 = previous;
    previous->link0 = next;
    if (leaf->is_root) {
        parent->parent = parent;
        free(leaf);
        return;
    }
    rbt_node *sibling = sibling_of(leaf);
    put_in_place_of(parent, sibling);
    name_end(sibling, leaf->left_child ? next : previous, leaf->left_child);
    if (!parent->red) mend_black(sibling);
    free(leaf);
    free(parent);
}

ULO create_block(ULO size)
{
    const void *bytes = zeros(size);
    return bytes == nullptr ? 0 : enter_block(bytes, size);
}

ULO replicate_block(const rbt_node *block)
{
    const ULO size = block->size.number;
    const ULO copy = create_block(size);
    if (copy != 0) memcpy(reinterpret_cast<CHR *>(copy), block_bytes(block), size);
    return copy;
}

ULO reallocate_block(rbt_node *block, ULO size)
{
    const ULO old = block->key.number, recorded = block->size.number;
    if (size == 0 || size > LARGEST_BLOCK) return 0;
    // Offsets up to the recorded size stay allowed, so the bytes must stay too.
    if (size <= recorded) return old;
    CHR *bytes = static_cast<CHR *>(realloc(block_bytes(block), size));
    if (bytes == nullptr) return 0;
    if (descriptor_of(bytes) == old) return old;
    memset(bytes + recorded, 0, size - recorded);
    rbt_remove(block);
    rbt_insert(async_heap_tree, descriptor_of(bytes), size);
    return descriptor_of(bytes);
}

void delete_block(rbt_node *block)
{
    free(block_bytes(block));
    rbt_remove(block);
    async_heap_blocks--;
}
