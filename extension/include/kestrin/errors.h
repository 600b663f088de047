// Runtime errors: a code, a text and a pending flag of the calling thread. Once an error is raised,
// constants, variable reads and the fetches of kestrin/value.h do nothing, so all evaluation drains
// away by ordinary returns, up to the driver or to a MAPCAR. A handler that raises one just
// returns.
//
// Every call here belongs to a thread that has been set up (kestrin/value.h) and to a run, which
// begins with code 0 and an empty text. It does not begin with an error pending from before: one
// raised in main or in startup_callback() keeps the program from running, with code 0 and no text
// left to tell. One raised in taskjob_end_callback() comes too late to fail a run.
//
// All texts are counted strings (kestrin/strings.h), printed up to their first NUL. Nothing here
// can fail but by lack of memory, which ends the process.
#pragma once

#include "kestrin/types.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// Codes 1 to 16 are the engine's, 17 to 248 are free for users, 249 to 255 are reserved.
enum : UCH {
    ECODE_RT__INT_DIVZERO = 1,
    ECODE_RT__INT_MODZERO = 2,
    ECODE_RT__FLOAT_DIVZERO = 3,
    ECODE_RT__FLOAT_POWER = 4,
    ECODE_RT__FLOAT_LOGARITHM = 5,
    ECODE_RT__FLOAT_SQRT = 6,
    ECODE_RT__AHEAP_WRONGDESCR = 7,
    ECODE_RT__AHEAP_OUTOFRANGE = 8,
    ECODE_RT__WRONG_FMT_STRING = 9,
    ECODE_RT__VAR_NOTINIT = 10,
    ECODE_RT__ARR_NOTINIT = 11,
    ECODE_RT__ARR_MEMBSNOTINIT = 12,
    ECODE_RT__ARR_NEGINDEX = 13,
    ECODE_RT__ARR_ZEROMEMB = 14,
    ECODE_RT__ARR_WRONGINDICES = 15,
    ECODE_RT__ARR_TYPEMISMATCH = 16,
    ECODE_RT__RESERVED6 = 249,
    ECODE_RT__RESERVED5 = 250,
    ECODE_RT__RESERVED4 = 251,
    ECODE_RT__RESERVED3 = 252,
    ECODE_RT__RESERVED2 = 253,
    ECODE_RT__RESERVED1 = 254,
    ECODE_RT__RESERVED0 = 255,
};

// 1 while no error and no unwinding is pending on this thread, else 0. A handler asks once, behind
// the fetch of all its operands and ahead of any effect.
UCH noterror();

// The set_ forms prepare an error and let the run go on; a later rise_error() raises it. The rise_
// forms raise it at once. None of them looks whether one is pending already: the new code and text
// take its place. `*targ_errtext` is a target of the caller, which becomes a copy of the text as it
// then stands.

// Code and text stay as they are, but an empty text becomes "Unknown error!".
void set_error(CHR **targ_errtext);
void rise_error();
// The same, and the text gets its place behind it, as in " (Fnc=Main:F; Dbg=208)": the running
// function and a byte offset into the code. `dat_ptr` is the one that the handler got, or NULL for
// offset 0. Each call adds the place anew.
void set_error_dbg(CHR **targ_errtext, const ULO *dat_ptr);
void rise_error_dbg(const ULO *dat_ptr);
// Code and text become those given; NULL is the empty text. `errcode` is one of 0 to 248: a
// reserved code sets code 0 and a text that says so, and the rise_ form still raises that.
void set_error_info(UCH errcode, CHR **targ_errtext, const CHR *src_errtext);
void rise_error_info(UCH errcode, const CHR *src_errtext);
// The same, and the text gets its place behind it.
void set_error_info_dbg(UCH errcode, CHR **targ_errtext, const CHR *src_errtext,
                        const ULO *dat_ptr);
void rise_error_info_dbg(UCH errcode, const CHR *src_errtext, const ULO *dat_ptr);

// The code as it stands, raised or only set; 0 if there is none.
UCH get_error_code();
// A copy of the text as it stands, maybe empty; returns the target.
CHR *get_error_text(CHR **targ_errtext);

#pragma GCC visibility pop
