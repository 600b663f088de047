// The check of a rewritten program under a unit's own instruction table. With the built-in table
// the rewrites need none, and nothing happens.
#pragma once

#include "driver/session.h"

// Ahead of the program's check: keeps the functions known so far.
void remember_functions();
// Checks the rewritten program against them; a failure ends the process.
void check_integrity(const session *s);
