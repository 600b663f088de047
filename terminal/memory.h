// Heap blocks of the termcap reader and of cursor strings. Running out of memory ends the process
// with a line on descriptor 2 and status 1: this library works without the string library and its
// report.
#pragma once

#include <cstddef>
#include <string_view>

// Writes a line to descriptor 2, past all buffers.
void term_complain(std::string_view text);

// As malloc() and realloc(), but never NULL for a size above 0.
void *term_allocate(std::size_t size);
void *term_reallocate(void *block, std::size_t size);
