// The source reader: a file becomes one line of reader text.
#pragma once

#include <string>
#include <string_view>

#include "frontend/places.h"
#include "kestrin/types.h"

// A file as it is, read once, so that it may be a pipe.
struct raw_file {
    std::string contents;             // as far as they were read
    const CHR *failed_call = nullptr; // "open" or "read"; NULL: none failed
    int error = 0;                    // errno of the call that failed
};
raw_file read_raw(const CHR *path);

// Joins the lines of a source text, each followed by one blank; comments are gone and control bytes
// outside string constants are blanks. `carry_quotes`: a string constant may go on in the next
// line. `places`, if not NULL, learns where the lines begin. Returns the number of the line, from
// 1, that ends inside a string where none may; else 0.
ULO join_lines(std::string *joined, std::string_view text, bool carry_quotes,
               file_places *places = nullptr);

// The reader text of a file. Ends the process with a report that names the path if it could not be
// read, and with a message if a line ends inside a string.
std::string read_from_raw(const CHR *path, const raw_file &file, file_places *places);
