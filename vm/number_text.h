// Formats that need no system library, which is slow at reading a format and at printing numbers.
#pragma once

#include <string_view>

#include "kestrin/value.h"

// Cuts digits off, which may be none. False if their number is above `most`.
bool take_number(std::string_view *rest, ULO most, ULO *value);

// Prints the single value in `d` under `format` into its string. False, with nothing done, if the
// format or the value is one for the system library: what this prints is the same byte for byte.
// Known are the flags - and 0, a width and a precision, and for integers d i u o x with the sizes
// none, l and ll, for floats f e E, for texts s. The format holds no NUL.
bool print_plainly(kestrin_data *d, std::string_view format);
