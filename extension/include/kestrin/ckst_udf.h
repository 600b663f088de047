// Everything an extension unit needs, in one include; a C++17 compiler is enough. A unit is one
// source file (or several) that takes the place of the default one: it defines what kestrin/unit.h
// lists and links with the engine's library.
//
// All names are global, and some are short words (len, left, tail, space): a unit does better
// without `using namespace std`. No exception may leave a handler or a callback: the engine is
// built without them.
#pragma once

#include "kestrin/errors.h"
#include "kestrin/isa.h"
#include "kestrin/mapcar.h"
#include "kestrin/module.h"
#include "kestrin/strings.h"
#include "kestrin/types.h"
#include "kestrin/unit.h"
#include "kestrin/value.h"
