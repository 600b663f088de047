// All that kst check tells of a program.
#pragma once

#include <vector>

#include "workshop/fault.h"

// The faults of a source, or else its warnings, by place. Wants the language started.
std::vector<fault> check_source(const source &from);
