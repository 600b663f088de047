// The configuration profile: global functions that every program of a site can call.
#pragma once

#include "driver/session.h"

// Reads the profile if it can be opened and makes it the global function set of the_engine, but
// for its code; its functions stand in the table of known functions for good. A faulty profile ends
// the process.
void load_profile(session *s);

// The same with a profile whose text is known already.
void take_profile(session *s, const std::string &text);

// Makes the definitions, which stand checked in the set's tree and in the table of known functions,
// the global function set of the_engine, but for its code. What it had is replaced.
void make_global(session *s, std::vector<node_index> definitions);

// The definitions as a text.
std::string set_text(const session *s);
// Makes one program of the set, which may be empty, for the compiler.
void close_set(session *s);
