// The allocation failure of the termcap reader: reported by a bare write, as nothing that allocates
// can be relied on any more.
#include "terminal/memory.h"

#include <unistd.h>

void term_complain(std::string_view text)
{
    [[maybe_unused]] ssize_t sent = write(2, text.data(), text.size());
}

void *term_reallocate(void *block, std::size_t size)
{
    void *grown = realloc(block, size);
    if (grown != nullptr || size == 0) return grown;
    term_complain("virtual memory exhausted.\n");
    exit(1);
}
