// Cursor-addressing templates: from a template in termcap notation and two arguments to the bytes
// that move the cursor. The texts are plain NUL-terminated ones.
#pragma once

#include <cstdint>

#include "terminal/memory.h"

// Texts that move the cursor up and left by one; both stay NULL unless a module sets them.
extern const CHR *UP;
extern const CHR *BC;

// Expands `form` with arg[0] and arg[1], which it may change. With `left` set, the bytes 0, 9 and
// 10 are kept from the terminal: a greater one goes out, and `up` or `left` is appended once for
// each step. Reads beside the two arguments give 0; a division by 0 gives 0.
term_text expand_cursor(const CHR *form, const CHR *up, const CHR *left, std::int32_t arg[2]);

// The string for this column and row; NULL gives NULL. Valid until the next call. Not for threads.
CHR *tgoto(const CHR *form, int column, int row);
