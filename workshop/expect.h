// What a program says of itself in comments: `# expect: TEXT', `# error: CODE', `# input: TEXT',
// `# args: WORD ...'.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "workshop/trial.h"

enum class said : UCH {
    OUTPUT, // the next line of its output, its value being the last
    VALUE,  // of the form of the program that the comment stands behind
    ERROR,  // its end: the code of a runtime error, or a piece of what is told of its fault
    INPUT,  // the next line of its input
    WORDS,  // that it gets, with their quotes
};

struct expectation {
    said what;
    ULO from, size;       // all of the comment in the program's text
    ULO line;             // on which it stands
    std::string text;     // without escapes; of a line with its newline
    file_place form = {}; // that it is the value of, and its number among such forms, from 1
    ULO number = 0;
};

// All of a program's, in their order. Escapes are \n \t \r \\ \xHH, and \c at the end of a line
// that has no newline; any other backslash stands for itself.
std::vector<expectation> expectations_of(const source &from);
// What the others say together.
std::string text_of(const std::vector<expectation> &all, said what);
bool says(const std::vector<expectation> &all, said what);
// Adds its words without their quotes. Returns the line of a comment that leaves one open, else 0.
ULO take_words(const std::vector<expectation> &all, std::vector<std::string> *words);

// A value as `kst run' prints it.
std::string shown(const form_value &value);

// What differs, as lines to be shown; none: the program did what it says. The file's name stands in
// front of the first line of each difference.
std::vector<std::string> differences(const trial &t, const std::vector<expectation> &all,
                                     const outcome &done);

// Whether comments of the kinds that there are can say what the program did.
bool can_be_told(const std::vector<expectation> &all, const outcome &done);
// The program's text with comments that do.
std::string updated(const std::string &text, const std::vector<expectation> &all,
                    const outcome &done);
