// The system library's generator, as IRND and FRND draw from it.
#pragma once

#include "kestrin/types.h"

constexpr DFL largest_draw = 2147483647.0;

// The next number from 0 to largest_draw; with `reset` after seeding the generator from the clock.
DFL draw(bool reset);
