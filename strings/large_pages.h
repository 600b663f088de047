// Large blocks in large pages, where the system has them: a program's tree and code are written
// once from end to end, and each small page would be a fault of its own.
#pragma once

#include <sys/mman.h>

#include "kestrin/types.h"

#ifndef MADV_HUGEPAGE
constexpr int MADV_HUGEPAGE = MADV_NORMAL, MADV_NOHUGEPAGE = MADV_NORMAL;
#endif

// Of what has not been touched yet in a block that has been allocated. Small blocks are left as
// they are.
inline void wish_for_pages(const void *block, ULO size, int kind)
{
    constexpr ULO LARGE_PAGE = ULO(2) << 20, PAGE = 4096;
    if (size < LARGE_PAGE) return;
    // All of its pages, so that the block stays one mapping, which can grow without being copied.
    const ULO from = reinterpret_cast<ULO>(block) & ~(PAGE - 1);
    const ULO to = (reinterpret_cast<ULO>(block) + size + PAGE - 1) & ~(PAGE - 1);
    madvise(reinterpret_cast<void *>(from), to - from, kind); // it may fail
}
inline void use_large_pages(const void *block, ULO size)
{
    wish_for_pages(block, size, MADV_HUGEPAGE);
}
inline void use_small_pages(const void *block, ULO size)
{
    wish_for_pages(block, size, MADV_NOHUGEPAGE);
}
