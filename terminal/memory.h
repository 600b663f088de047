// Heap blocks of the termcap reader and of cursor strings. Running out of memory ends the process
// with a line on descriptor 2 and status 1: this library works without the string library and its
// report.
#pragma once

#include <cstddef>

// As malloc() and realloc(), but never NULL for a size above 0.
void *term_allocate(std::size_t size);
void *term_reallocate(void *block, std::size_t size);
