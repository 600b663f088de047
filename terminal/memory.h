// Memory of the termcap reader and of cursor strings. Running out of it ends the process with a
// line on descriptor 2 and status 1: this library works without the string library and its report.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kestrin/types.h"

// Writes a line to descriptor 2, past all buffers.
void term_complain(std::string_view text);

// As realloc(), but never NULL for a size above 0.
void *term_reallocate(void *block, std::size_t size);

// The same for containers.
template <class T> struct term_allocator {
    using value_type = T;
    term_allocator() = default;
    template <class U> term_allocator(const term_allocator<U> &) {}
    T *allocate(std::size_t n) { return static_cast<T *>(term_reallocate(nullptr, n * sizeof(T))); }
    void deallocate(T *block, std::size_t) { free(block); }
    bool operator==(const term_allocator &) const { return true; }
};
using term_text = std::basic_string<CHR, std::char_traits<CHR>, term_allocator<CHR>>;
