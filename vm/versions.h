// Version and build texts: what the VERSION_ and COMPILED_ instructions answer and what the
// driver's listings print.
#pragma once

#include "kestrin/types.h"
#include "strings/state.h" // VERSION_STRGLIB
#include "terminal/termcap.h"

inline constexpr CHR VERSION_KESTRIN[] = "Ostrand Kestrin v.2.9.6.";
inline constexpr CHR VERSION_TERMCAP[] = VERSION_TERMCAP___;
inline constexpr CHR VERSION_MEMPOOL[] = "No Memory Pool code is used.";

// The machine and system of the build; the compiler and the form of the executable.
extern const CHR compiled_on[];
extern const CHR compiled_by[];
