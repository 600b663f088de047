// The decompiler: compiled bytecode back to program text.
#pragma once

#include <string_view>

#include "kestrin/types.h"

enum decompile_mode : UCH {
    ENTIRE,    // all UDFs; messages stand in front of the text
    EFFECTIVE, // without the UDFs that nothing calls; messages in front
    MINIMISED  // as EFFECTIVE, without messages in the text
};

// Where code comes from. The words of sound code are followed without a test. Only code that this
// run's compiler made may have names and nested functions without bound: names are written wherever
// they are used, and a small file could fill the memory.
enum class code_origin : UCH {
    OWN,      // made by this run's compiler
    VERIFIED, // sound code of this run's tables
    FOREIGN   // it may be anything
};

struct decompile_request {
    const CHR *code;   // first byte of a compiled image, never of a linked one
    ULO size;          // its bytes
    bool with_offsets; // a comment form (REM Dbg=N) behind each variable and instruction
    decompile_mode mode;
    code_origin origin;
    // Names a formal argument that is assigned: this, "Var_" and its number; "$1" if empty.
    std::string_view arg_prefix = "Arg_";
};

// Replaces `*text` by the text of the code, one form, not squeezed yet; and `*messages` by what
// there is to say of it, whole lines, each once. Names come from the debug text, from the tables
// for what it does not list, and are made up where neither has one. Returns true if all of the code
// could be understood. It goes on over code that it can't make sense of, and never reads outside
// it, nor any word twice, whatever its origin. Leaves no syntax error behind in the thread's
// record, not even an earlier one, once it has met a float constant.
bool kestrin_decompile(const decompile_request &request, CHR **text, CHR **messages);
