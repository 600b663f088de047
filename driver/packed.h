// A program that is part of the executable: its text or code stands behind the end of the engine's
// file, and a mark within the engine tells where. Nothing is looked for while the mark is blank.
#pragma once

#include <string>

#include "kestrin/types.h"

struct packed_program {
    std::string profile; // source of its global functions; may be empty
    std::string program; // a source or a stored program
};

// Whether there is a program in this executable.
bool is_packed();
// Reads it. `name` is what the process was called by, for systems without /proc. False if the file
// can't be read or has been damaged.
bool unpack(const CHR *name, packed_program *into);

// Turns the bytes of the engine's executable into one that holds the program. False if they have no
// mark, or one that is filled in already.
bool pack(std::string *executable, const packed_program &packed);
