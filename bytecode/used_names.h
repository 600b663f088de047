// What the debug text of a root image says of the code's names: three lists in front of its own
// name, of the global functions and of the two kinds of instructions in use.
#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

#include "kestrin/types.h"

struct listed_name {
    std::string_view name;
    SLO operands; // of an instruction
};

// By number: of global functions, or row. Of several with one number the first counts.
using numbered_names = std::map<ULO, listed_name>;

// Views into the text that they were read from.
struct used_names {
    numbered_names global_udfs;
    numbered_names isa, isaext; // empty if the code was compiled without
};

// Write a list behind a debug text: its beginning, each name with its numbers, its end.
void begin_used_names(std::string *text);
void append_used_name(std::string_view name, std::initializer_list<SLO> numbers, std::string *text);
void end_used_names(std::string *text);
// Splits the three lists off; `*text` is what follows them. A text without lists stays as it is.
used_names take_used_names(std::string_view *text);

// The last part of a scoped name: STEP of Main:FACT:STEP.
std::string_view own_name(std::string_view scoped);
