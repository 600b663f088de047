// The source reader: a file becomes one line of reader text.
#pragma once

#include <string>
#include <string_view>

#include "kestrin/types.h"

// Reads the whole file into `*contents`. Returns false with errno set if it can't be opened or
// read;
// `*failed_call` then names the system call.
bool read_raw(std::string *contents, const CHR *path, const CHR **failed_call);

// Joins the lines of a source text, each followed by one blank; comments are gone and control bytes
// outside string constants are blanks. `carry_quotes`: a string constant may go on in the next
// line. Returns the number of the line, from 1, that ends inside a string where none may; else 0.
ULO join_lines(std::string *joined, std::string_view text, bool carry_quotes);

// Replaces `*targ` by the reader text of a file with these contents. Ends the process with a
// message that names the path if a line ends inside a string.
void read_from_text(CHR **targ, const CHR *path, std::string_view contents);

// The same for a file that is still to be read; one that can't be ends the process with a report.
void read_from_file(CHR **targ, const CHR *path);
