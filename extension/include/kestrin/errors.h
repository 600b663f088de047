// Runtime errors: a code, a text and a pending flag of the calling thread. Once an error is raised
// all evaluation drains away by ordinary returns.
#pragma once

#include "kestrin/types.h"

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

// The set_ family leaves the run going and copies the resulting text to `*targ_errtext`; the rise_
// family also makes the error pending. An empty text becomes "Unknown error!". The _info forms set
// code and text; a reserved code sets code 0 and a text that says so. The _dbg forms add where it
// happened: `dat_ptr` is the one that the handler got.
void set_error(CHR **targ_errtext);
void rise_error();
void set_error_dbg(CHR **targ_errtext, const ULO *dat_ptr);
void rise_error_dbg(const ULO *dat_ptr);
void set_error_info(UCH errcode, CHR **targ_errtext, const CHR *src_errtext);
void rise_error_info(UCH errcode, const CHR *src_errtext);
void set_error_info_dbg(UCH errcode, CHR **targ_errtext, const CHR *src_errtext,
                        const ULO *dat_ptr);
void rise_error_info_dbg(UCH errcode, const CHR *src_errtext, const ULO *dat_ptr);

// The code, and a copy of the text, as they stand.
UCH get_error_code();
CHR *get_error_text(CHR **targ_errtext);
