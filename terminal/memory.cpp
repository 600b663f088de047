// The allocation failure of the termcap reader: reported by a bare write, as nothing that allocates
// can be relied on any more.
#include "terminal/memory.h"

#include <cstdlib>
#include <unistd.h>

namespace {

[[noreturn]] void memory_exhausted()
{
    term_complain("virtual memory exhausted.\n");
    exit(1);
}

} // namespace

void term_complain(std::string_view text)
{
    [[maybe_unused]] ssize_t sent = write(2, text.data(), text.size());
}

void *term_allocate(std::size_t size) { return term_reallocate(nullptr, size); }

void *term_reallocate(void *block, std::size_t size)
{
    void *grown = realloc(block, size);
    if (grown == nullptr && size != 0) memory_exhausted();
    return grown;
}
