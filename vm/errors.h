// The machine's own runtime errors, and where in a program they happened.
#pragma once

#include <string_view>

#include "kestrin/errors.h"
#include "kestrin/types.h"

// A text of errors.def and with it its code.
enum class rt_text : UCH {
    NONE,
#define RT_TEXT(id, code, text) id,
#include "vm/errors.def"
#undef RT_TEXT
};

// Makes an error pending: code, and text with the place. `dat_ptr` is the one that the handler got;
// `variable` is a slot number plus 1, or 0. `detail` is put behind the table's text.
void raise_error(rt_text text, const ULO *dat_ptr, ULO variable = 0, std::string_view detail = {});

// The error of reading a variable that holds no value; `node` is the read's own node.
void raise_unset_variable(const ULO *node);

// The error of a call that the native stack has no room for.
void raise_deep_recursion(const ULO *dat_ptr);

// Replaces `*text` by `message` and the place: "message (Fnc=Main:F; Dbg=208; Var=V)". Function and
// variable names come from the debug text of the running function, if it has one.
void kst_errfmt_helper(CHR **text, const CHR *message, const ULO *dat_ptr, ULO variable);

// What the _info functions do without raising: sets code and text, or code 0 and the refusal of a
// code outside 0 to 248 in the name of `caller`.
void set_error_state(SLO code, const CHR *text, std::string_view caller);
// Puts the place behind the error's text.
void add_error_place(const ULO *dat_ptr);
