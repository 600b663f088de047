// The type pass a second time, as plainly as its rules read: direct recursion on text, with copies
// for every rehearsal and every walk. Tests hold the real pass against it.
#pragma once

#include <map>
#include <set>
#include <string>

#include "kestrin/types.h"

namespace kit {

using type_rows = std::map<std::string, UCH>;
using array_rows = std::set<std::string>;

// Replaces `*text` by typed text, extends `*udf_types`, and returns the letter.
UCH plain_types(std::string *text, std::string *udf_types);

} // namespace kit
