// Files whose contents are exchanged as a whole.
#pragma once

#include <string>
#include <string_view>

#include "kestrin/types.h"

// Gives a file new contents: it has either the old ones or the new ones at any moment, and keeps
// its mode and, where that is allowed, its owner. A link goes on leading to the same file. False
// with the reason in `*why`; the file is then as it was.
bool replace_file(const CHR *path, std::string_view contents, std::string *why);
