// The system library's generator, as IRND and FRND draw from it.
#pragma once

#include "kestrin/types.h"

constexpr DFL LARGEST_DRAW = 2147483647.0;

// The next number from 0 to LARGEST_DRAW; with `reset` after seeding the generator from the clock.
DFL draw(bool reset);
