// Faults of programs and how they are shown.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/places.h"
#include "kestrin/types.h"

// A source text with the name that it is shown by.
struct source {
    std::string name, text;
    ULO first_line = 1; // number of its first line, where it is part of a longer text
    ULO number_of(ULO line_of_text) const { return first_line - 1 + line_of_text; }
    // All lines without their ends. One more is empty behind a newline at the end.
    std::vector<std::string_view> lines() const;
};

// A place with what is to be said of it. Line 0: of the file as a whole; column 0: of the line.
struct fault {
    file_place at;
    std::string text;
    bool is_warning = false;
};

// Bytes that a terminal would obey as blanks; tabs and newlines stay.
std::string plain(std::string_view text);

// Whether a byte of UTF-8 is not the first of its character.
constexpr bool continues_character(CHR byte) { return (static_cast<UCH>(byte) & 0xC0) == 0x80; }

// The first bytes of a text, at most so many, up to a whole character.
std::string_view beginning(std::string_view text, ULO most);

// As much of a text as tells which one it is: what is longer than so many bytes ends with " ...".
std::string shortened(std::string_view text, ULO most);

// By line and column; of those at one place the first found stays first.
void sort_by_place(std::vector<fault> *faults);

// Prints "name:line:column: text", then the line and a mark under the place.
void print_fault(FILE *stream, const source &from, const fault &found);
void print_faults(FILE *stream, const source &from, const std::vector<fault> &found);
