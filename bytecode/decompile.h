// The decompiler: compiled bytecode back to program text.
#pragma once

#include <string_view>

#include "kestrin/types.h"

enum decompile_mode : UCH {
    ENTIRE,    // all UDFs, a comment form (REM Dbg=N) behind each variable and instruction, and
               // messages in front
    EFFECTIVE, // without the comments and without the UDFs that nothing calls; messages in front
    MINIMISED  // as EFFECTIVE, without messages in the text; a formal argument that is assigned is
               // $1, not Arg_Var_1
};

// Where code comes from. The words of sound code are followed without a test. Only code that this
// run's compiler made may have names and nested functions without bound: names are written wherever
// they are used, and a small file could fill the memory.
enum class code_origin : UCH {
    OWN,      // made by this run's compiler
    VERIFIED, // sound code of this run's tables
    FOREIGN   // it may be anything
};

// Replaces `*text` by the text of a compiled image, never a linked one: one form, not squeezed yet;
// and `*messages` by what there is to say of it, whole lines, each once. Names come from the debug
// text, from the tables for what it does not list, and are made up where neither has one. Returns
// true if all of the code could be understood. It goes on over code that it can't make sense of,
// and never reads outside it, nor any word twice, whatever its origin. Leaves no syntax error
// behind in the thread's record, not even an earlier one, once it has met a float constant.
bool kestrin_decompile(std::string_view code, decompile_mode mode, code_origin origin, CHR **text,
                       CHR **messages);
