// The type names of all interfaces of the engine. Widths are fixed: bytecode files, raw number
// images and extension units rely on them.
#pragma once

#include <cstdint>

using CHR = char;
using UCH = std::uint8_t;
using SCH = std::int8_t;
using USH = std::uint16_t;
using SSH = std::int16_t;
using ULO = std::uint64_t;
using SLO = std::int64_t;
using DFL = double;

static_assert(sizeof(DFL) == 8 && sizeof(void *) == 8, "words of bytecode are 8 bytes");
