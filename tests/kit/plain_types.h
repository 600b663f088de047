// The type pass a second time, as plainly as its rules read: direct recursion on text, with copies
// for every rehearsal and every walk. Tests hold the real pass against it.
#pragma once

#include <string>

#include "kestrin/types.h"

namespace kit {

// Replaces `*text` by typed text, extends `*udf_types`, and returns the letter.
UCH plain_types(std::string *text, std::string *udf_types);

} // namespace kit
