// The allocation failure of the termcap reader: reported by a bare write, as nothing that allocates
// can be relied on any more.
#include "terminal/memory.h"

#include <cstdlib>
#include <unistd.h>

namespace {

[[noreturn]] void memory_exhausted()
{
    static constexpr char text[] = "virtual memory exhausted.\n";
    if (write(2, text, sizeof text - 1) < 0) _exit(1);
    exit(1);
}

} // namespace

void *term_allocate(std::size_t size)
{
    return term_reallocate(nullptr, size);
}

void *term_reallocate(void *block, std::size_t size)
{
    void *grown = realloc(block, size);
    if (grown == nullptr && size != 0) memory_exhausted();
    return grown;
}
