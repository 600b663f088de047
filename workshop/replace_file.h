// Files whose contents are exchanged as a whole.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

#include "kestrin/types.h"

// Makes a file with this mode, less what the umask takes, at the end of all links. What stands
// there already must be a file that may be written, and gives way as a whole. False with the
// reason in `*why`; all is then as it was.
bool make_file(const CHR *path, std::string_view contents, mode_t mode, std::string *why);

// Whether a path leads to the same file as another; false if one of them leads nowhere.
bool is_same_file(const CHR *one, const std::string &other);

// Gives a file new contents: it has either the old ones or the new ones at any moment, and keeps
// its mode and, where that is allowed, its owner. A link goes on leading to the same file. False
// with the reason in `*why`; the file is then as it was.
bool replace_file(const CHR *path, std::string_view contents, std::string *why);
