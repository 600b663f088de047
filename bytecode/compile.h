// Pass One: prepared text becomes compiled bytecode, which holds no addresses and can be stored.
#pragma once

#include "kestrin/types.h"

// Replaces `*source`, one parenthesised form of prepared text, by the function image of it. `name`
// is the function name of the debug text, "Main" if NULL. `debug_level` 0 writes no debug text, 1
// all of it, more the names without the lists of used instructions. Reports no errors: of text that
// the checker would refuse it makes sound code without meaning.
void kestrin_compile(CHR **source, UCH debug_level, const CHR *name);
