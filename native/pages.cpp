#include "native/pages.h"

#include <cstring>
#include <sys/mman.h>

namespace native {

namespace {

// Of all pieces; the maker's lock guards it.
ULO bytes_in_use = 0;

} // namespace

std::unique_ptr<code_pages> code_pages::make(std::span<const UCH> code)
{
    const ULO size = (code.size() + 4095) & ~ULO(4095);
    if (size == 0 || bytes_in_use + size > MOST_BYTES) return nullptr;
    void *pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return nullptr;
    memcpy(pages, code.data(), code.size());
    if (mprotect(pages, size, PROT_READ | PROT_EXEC) != 0) {
        munmap(pages, size);
        return nullptr;
    }
    bytes_in_use += size;
    return std::unique_ptr<code_pages>(new code_pages(static_cast<UCH *>(pages), size));
}

code_pages::~code_pages()
{
    munmap(begin_, size_);
    bytes_in_use -= size_;
}

} // namespace native
