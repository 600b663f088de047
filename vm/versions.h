// Version and build texts: what the VERSION_ and COMPILED_ instructions answer and what the
// driver's listings print.
#pragma once

#include "kestrin/types.h"
#include "terminal/termcap.h"

inline constexpr CHR version_kestrin[] = "Ostrand Kestrin v.2.9.6.";
inline constexpr CHR version_termcap[] = VERSION_TERMCAP___;
inline constexpr CHR version_strglib[] = "Ostrand StrgLib v.2.2.5."; // as strings_version() says
inline constexpr CHR version_mempool[] = "No Memory Pool code is used.";

// The machine and system of the build; the compiler and the form of the executable.
extern const CHR compiled_on[];
extern const CHR compiled_by[];
