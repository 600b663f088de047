// The stages of a program's code: the global functions of the profile, which every program has, and
// the program itself.
#pragma once

#include "driver/session.h"

// The global function set always exists as code, though it may be empty.
void compile_global_functions(session *s);
void compile_program(session *s);
// The set first: the program's code refers to it.
void link_all(session *s);
// A stored program alone, with its set in it.
void link_precompiled(session *s);
