// The system's own reader of terminal descriptions: finds an entry in the termcap file or in the
// environment, merges what it refers to, and answers for its capabilities. There is one entry at a
// time, process-wide and without a lock. All texts are plain NUL-terminated ones; running out of
// memory ends the process with status 1.
#pragma once

#include <cstdio>

#include "kestrin/types.h"

#define VERSION_TERMCAP___ "Ostrand TermCap v.1.2.0."

// Makes the entry of terminal `name` the current one: 1. If there is no such entry, 0; if the
// database can't be opened, -1; the current entry then stays. TERMCAP in the environment is an
// entry or the path of the database, else that is /etc/termcap. The size of the window on
// descriptor 0 beats the database. `bp` is ignored.
int tgetent(CHR *bp, const CHR *name);
// Frees the current entry; nothing is found until the next tgetent().
void free_entry();

// The entry of that name in a database, its lines joined, cut after 4,093 bytes. A block for
// free(); NULL if there is none.
CHR *get_one_entry(FILE *stream, const CHR *name);

// A capability of the current entry by its two-letter name. One of another kind is not found.
// Number: -1 if there is none.
int tgetnum(const CHR *id);
// Flag: 1 or 0.
int tgetflag(const CHR *id);
// String, decoded into `*buf`, which is NULL or a block of malloc() and is resized; returns it.
// NULL, with `*buf` as it was, if there is none.
CHR *tgetstr(const CHR *id, CHR **buf);

// Line speed as an index of the table of speeds, and the byte that pads.
extern SSH ospeed;
extern CHR PC;
// Sends a string without its leading delay through `outc`, then as many PC as the delay takes;
// `affcnt` is the number of lines for a delay in proportion. NULL sends nothing.
void tputs(const CHR *string, int affcnt, int (*outc)(int));
