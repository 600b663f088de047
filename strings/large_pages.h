// Large blocks in large pages, where the system has them: a program's tree and code are written
// once from end to end, and each small page would be a fault of its own.
#pragma once

#include <sys/mman.h>

#include "kestrin/types.h"

// For a block that has been allocated and not been touched yet. Small ones are left as they are.
inline void use_large_pages([[maybe_unused]] const void *block, [[maybe_unused]] ULO size)
{
#ifdef MADV_HUGEPAGE
    constexpr ULO LARGE_PAGE = ULO(2) << 20, PAGE = 4096;
    if (size < LARGE_PAGE) return;
    // All of its pages, so that the block stays one mapping, which can grow without being copied.
    const ULO from = reinterpret_cast<ULO>(block) & ~(PAGE - 1);
    const ULO to = (reinterpret_cast<ULO>(block) + size + PAGE - 1) & ~(PAGE - 1);
    madvise(reinterpret_cast<void *>(from), to - from, MADV_HUGEPAGE); // a wish: it may fail
#endif
}
