// Pass One: a prepared program becomes compiled bytecode, which holds no addresses and can be
// stored.
#pragma once

#include <vector>

#include "frontend/tree.h"
#include "kestrin/types.h"

// Where the node of a program's tree stands in its image.
struct code_place {
    ULO word; // of its first
    node_index node;
};

// Replaces `*code` by the function image of a program, one form. `name` is the function name of the
// debug text, "Main" if NULL. `debug_level` 0 writes no debug text, 1 all of it, more the names
// without the lists of used instructions. Reports no errors: of a program that the checker would
// refuse it makes sound code without meaning. `places`, if not NULL, learns where forms and
// variables stand, in the order of the words.
void kestrin_compile(tree *program, UCH debug_level, const CHR *name, CHR **code,
                     std::vector<code_place> *places = nullptr);
