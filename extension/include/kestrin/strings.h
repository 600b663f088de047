// The counted string library.
//
// A counted string is a heap block: an 8-byte length, the characters (any byte, NUL too), a NUL and
// NUL fill up to a multiple of 8 bytes. Its handle, a CHR *, points at the characters, so it is a
// NUL-terminated text as well. NULL reads as the empty string.
//
// Target rule: the first argument of a building operation is the address of the target, a variable
// that is NULL or holds a heap counted string. The result replaces what it held, is stored there
// and is returned, so calls nest. A source may be the very string that the target holds. The holder
// of the variable owns the block and ends it with free_string().
//
// A source is NULL, a counted string, or static data of the same layout; a plain text becomes one
// by get_std_buff(). A NULL source gives an allocated empty string where no row says otherwise.
//
// Positions are 1-based; 0 means not found. Positions and lengths count bytes. A blank is any byte
// from 0 to 32. Positions and lengths out of range are cut down, never reported. The one failure is
// lack of memory: it ends the process with the fatal report, but where a function honours the
// thread's fault hook.
//
// Threads may work at once on different strings; each has to be set up (kestrin/value.h).
#pragma once

#include "kestrin/types.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// -- Lack of memory ----------------------------------------------------------------------------

// What the library keeps for each thread.
struct strings_state {
    // Called when an allocation fails by the functions that honour it; they then leave their target
    // as it was and return its old handle. NULL, as it is from the start: such a failure is fatal.
    void (*fault_hook)();
    // How a byte is written by printf() in escapes, upper and lower case, and in dumps. NULL until
    // the thread first calls strraw(), strunraw() or strdump(). NUL-terminated, never freed.
    const CHR *raw_fmt_upper;
    const CHR *raw_fmt_lower;
    const CHR *dump_fmt;
};

// The calling thread's; NULL on a thread without set-up.
extern thread_local strings_state *strings_tls;

// -- Layout and assignment --------------------------------------------------------------------

// Length in bytes, the terminating NUL not counted; 0 for NULL.
ULO len(const CHR *string);
// 1 if the string holds a byte above 32 (unsigned), else 0. NULL gives 0.
UCH notempty(const CHR *string);
// 1 if equal byte for byte, else 0. Two NULLs are equal; NULL and an allocated empty string are
// not.
UCH cmp(const CHR *string1, const CHR *string2);
// Order of two strings, by unsigned bytes, the shorter of like ones first: -1, 0 or 1 as the first
// is less, equal or greater. NULL sorts ahead of everything.
SCH cmp_s(const CHR *string1, const CHR *string2);

// A plain block of size + 1 bytes, no length word, last byte NUL; `*buff` is NULL or such a block.
// Contents are the allocator's. Honours the fault hook. Freed with free().
CHR *mk_std_buff(CHR **buff, ULO size);
// Makes `*buff`, under the target rule, a counted string of `size` bytes. Keeps what fits of the
// old characters; new ones are undefined until the caller writes them. Nothing beyond `size` may be
// written: the NUL and the fill stand there. Honours the fault hook.
CHR *mk_fst_buff(CHR **buff, ULO size);
// Counted string of the NUL-terminated text `buff`; NULL gives an empty one. If `buff` is `*targ`
// itself, the target is a plain block of mk_std_buff() and becomes a counted string in place.
// Honours the fault hook.
CHR *get_std_buff(CHR **targ, const CHR *buff);
// Assignment: a copy of `source`; NULL gives an allocated empty string. Honours the fault hook.
CHR *equ(CHR **targ, const CHR *source);
// Appends `source`. NULL appends nothing and leaves even a NULL target as it is.
CHR *cat(CHR **targ, const CHR *source);
// Prepends `source`; always yields an allocated string.
CHR *lcat(CHR **targ, const CHR *source);
// Frees the string, if there is one, and sets the variable to NULL. Returns NULL.
CHR *free_string(CHR **targ);

// The same, but survive running out of memory whatever the fault hook: the target then stays as it
// was and the old handle is returned, by which, or by the length, the caller tells.
CHR *mk_std_buff_secure(CHR **buff, ULO size);
CHR *mk_fst_buff_secure(CHR **buff, ULO size);
CHR *get_std_buff_secure(CHR **targ, const CHR *buff);
CHR *equ_secure(CHR **targ, const CHR *source);

// Name and version of the library.
CHR *strings_version(CHR **targ);

// -- Search and cutting -----------------------------------------------------------------------

// Position of the first, or last, start of `pattern` in `among`; 0 if there is none, if either is
// NULL or the pattern is empty. Bytes compare as they are, NUL included.
ULO at(const CHR *pattern, const CHR *among);
ULO rat(const CHR *pattern, const CHR *among);

// `pos` characters from position `from`, as many as there are. Position 0 stands for 1 with `pos`
// less one.
CHR *substr(CHR **targ, const CHR *source, ULO from, ULO pos);
// The first `pos` characters; all but the last `posr`; the last `pos`; all but the first `posl`.
CHR *left(CHR **targ, const CHR *source, ULO pos);
CHR *leftr(CHR **targ, const CHR *source, ULO posr);
CHR *right(CHR **targ, const CHR *source, ULO pos);
CHR *rightl(CHR **targ, const CHR *source, ULO posl);

// All occurrences of `pattern` replaced by `subst`, from the left, not overlapping; the replacement
// is not searched again. An empty pattern finds nothing; an empty `subst` deletes. Pattern and
// substitution may be the target's own string too.
CHR *strtran(CHR **targ, const CHR *source, const CHR *pattern, const CHR *subst);

// -- Building, padding, trimming --------------------------------------------------------------

// `pos` spaces; `num` copies of the source; the bytes backwards; case change of the letters A to Z.
CHR *space(CHR **targ, ULO pos);
CHR *replicate(CHR **targ, const CHR *source, ULO num);
CHR *rev(CHR **targ, const CHR *source);
CHR *upper(CHR **targ, const CHR *source);
CHR *lower(CHR **targ, const CHR *source);

// Left-justified, right-justified, centred in exactly `width` bytes; longer text is cut at its end.
CHR *padl(CHR **targ, const CHR *source, ULO width);
CHR *padr(CHR **targ, const CHR *source, ULO width);
CHR *padc(CHR **targ, const CHR *source, ULO width);

// Without leading blanks, trailing blanks, both; pack also leaves single spaces between words.
CHR *ltrim(CHR **targ, const CHR *source);
CHR *rtrim(CHR **targ, const CHR *source);
CHR *alltrim(CHR **targ, const CHR *source);
CHR *pack(CHR **targ, const CHR *source);

// -- Tokens -----------------------------------------------------------------------------------

// The first word, delimited by blanks, and what follows it without leading blanks.
CHR *head(CHR **targ, const CHR *source);
CHR *tail(CHR **targ, const CHR *source);
// The same for tokens of the language: quoted parts and parenthesised lists hold together. Text
// that is out of balance is split without a report; lsp_head() then may be empty where text is
// left.
CHR *lsp_head(CHR **targ, const CHR *source);
CHR *lsp_tail(CHR **targ, const CHR *source);

// -- Conversions ------------------------------------------------------------------------------

// Printed numbers: %ld, %lu, 0x and sixteen upper-case digits, %.16E.
CHR *equ_num(CHR **targ, SLO num);
CHR *equ_unum(CHR **targ, ULO num);
CHR *equ_numhex(CHR **targ, ULO num);
CHR *equ_fnum(CHR **targ, DFL fnum);

// Raw images: the machine's bytes of a value as a string, and back. A string that is too short is
// extended with zero bytes, a longer one is read from its start.
CHR *sch2str(CHR **targ, SCH num);
CHR *ssh2str(CHR **targ, SSH num);
CHR *slo2str(CHR **targ, SLO num);
CHR *ptr2str(CHR **targ, void *ptr);
CHR *dfl2str(CHR **targ, DFL num);
SCH str2sch(const CHR *string);
SSH str2ssh(const CHR *string);
SLO str2slo(const CHR *string);
void *str2ptr(const CHR *string);
DFL str2dfl(const CHR *string);

// Escape sequences of the language (\n, \", \0x1B and so on) to bytes, and bytes to such escapes,
// all of them printable. Both act as a fixed sequence of whole replacements, so a backslash that
// one escape yields can take part in a later one.
CHR *strraw(CHR **targ, const CHR *source);
CHR *strunraw(CHR **targ, const CHR *source);

// Three characters for each byte, as the listings show it.
CHR *strdump(CHR **targ, const CHR *source);
// 64-bit cyclic redundancy sum over sign-extended bytes; 0 for NULL and for an empty string.
ULO crcsum(const CHR *string);
// The local time as the 24 characters of "Thu Jan  1 00:00:00 1970".
CHR *string_time(CHR **targ);

// -- UTF-8 ------------------------------------------------------------------------------------

// Size 1 to 4 of the legal character at this pointer, else 0. Bytes 0 and 0x7F are not legal. Reads
// four bytes at the most and stops at a NUL.
UCH is_utf8char(const CHR *utf8char);
// Cut what is not legal at the ends: at most six bytes in front, at most six behind.
CHR *ltrim_utf8(CHR **targ, const CHR *source);
CHR *rtrim_utf8(CHR **targ, const CHR *source);
CHR *alltrim_utf8(CHR **targ, const CHR *source);
// Case change of all scripts whose pairs have equal length; the length never changes.
CHR *upper_utf8(CHR **targ, const CHR *source);
CHR *lower_utf8(CHR **targ, const CHR *source);

#pragma GCC visibility pop
