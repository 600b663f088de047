// Rewrites of the program text: what a program gets from its surroundings arrives as source text.
#pragma once

#include "driver/session.h"

// PATTERN No# 1: the program as the arguments of one PROGN.
void wrap_program(session *s);
// The notice of that, where the program is wrapped as source.
void tell_wrapping(const session *s);
// PATTERN No# 2: assignments of the terminal's values in front of the program.
void bind_terminal(session *s);
// PATTERN No# 3: assignments of the command-line words in front of it. A word of no known type ends
// the process.
void bind_arguments(session *s);
// The same for words that arrive as they are: one that is no number and not nil is a string, byte
// for byte.
void bind_exact_words(session *s);
