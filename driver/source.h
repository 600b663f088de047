// The stages of a program's text and tree, in their order. Each tells in a talking run what it
// does; a faulty program ends the process.
#pragma once

#include "driver/session.h"

struct raw_file;

// Lists the functions of the profile.
void list_global_functions(const session *s);
// Joins the lines of the file, whose bytes go with that.
std::string read_source(session *s, raw_file *file);
// Checks the program, whose lines are joined, and returns the number of formal arguments that it
// needs, which is how many words there are on the command line.
ULO check_source(session *s, std::string source);
// Weaves in the values of the terminal and the words of the command line.
void bind_surroundings(session *s, ULO arguments);
void squeeze_program(session *s);
// Leaves the text of a program that is to be stored in stored_program.
void prove_types(session *s);
