// The registry of the asynchronous heap: raw blocks of memory that a program owns by descriptor. A
// descriptor is the block's address, and only what the registry knows is ever touched. Behind
// handlers/heap.cpp. Process-wide and without a lock.
//
// The registry is a red-black tree whose leaves are the blocks. A leaf also has its place in a ring
// in ascending order that runs through the header. An inner node stands for the gap between two
// neighbours of the ring and names both, so that a search compares with keys of leaves only.
#pragma once

#include "kestrin/types.h"

struct rbt_node {
    union number_or_leaf {
        ULO number;
        rbt_node *leaf;
    };
    rbt_node *link0;     // leaf: next of the ring; inner: left child; header: first leaf
    rbt_node *link1;     // leaf: previous of the ring; inner: right child; header: last leaf
    rbt_node *parent;    // of the root: the header; of the header: the root, or itself
    number_or_leaf key;  // leaf: address; inner: the greatest leaf of the left subtree
    number_or_leaf size; // leaf: bytes; inner: the smallest leaf of the right subtree
    UCH red;             // inner nodes only
    UCH inner;
    UCH left_child;
    UCH is_root;
    UCH is_header;
};

extern rbt_node *async_heap_tree; // the header; NULL until the first block
extern ULO async_heap_blocks;     // live blocks

// Puts a leaf in, whose key must be new; takes a leaf out and frees its node. A node that can't be
// allocated is fatal.
void rbt_insert(rbt_node *header, ULO key, ULO size);
void rbt_remove(rbt_node *leaf);

// The block of this descriptor, or NULL. The greatest descriptor is found by one comparison.
inline rbt_node *find_block(ULO descriptor)
{
    const rbt_node *header = async_heap_tree;
    if (header == nullptr || header->parent == header) return nullptr;
    rbt_node *last = header->link1;
    if (descriptor == last->key.number) return last;
    if (descriptor > last->key.number) return nullptr;
    for (const rbt_node *node = header->parent; node->inner;) {
        rbt_node *below = node->key.leaf;
        if (descriptor == below->key.number) return below;
        node = descriptor < below->key.number ? node->link0 : node->link1;
    }
    return nullptr; // every leaf but the last is the lower neighbour of a gap
}

inline CHR *block_bytes(const rbt_node *block)
{
    return reinterpret_cast<CHR *>(block->key.number);
}

// Ranges of a block: the word of that index, and `length` bytes from `offset`. A negative length is
// no fault of the range.
inline bool holds_word(const rbt_node *block, SLO index)
{
    return index >= 0 && static_cast<ULO>(index) < block->size.number / sizeof(ULO);
}
inline bool holds_bytes(const rbt_node *block, SLO offset, SLO length)
{
    return offset >= 0 && length <= static_cast<SLO>(block->size.number) - offset;
}

// A new block of zeros, and a copy of a block: the descriptor, or 0 if there is no memory.
ULO create_block(ULO size);
ULO replicate_block(const rbt_node *block);
// The descriptor afterwards; 0, with the block as it was, if there is no memory or the size is 0.
// If the block stays where it is, its recorded size stays too, so that a block never shrinks.
ULO reallocate_block(rbt_node *block, ULO size);
void delete_block(rbt_node *block);
