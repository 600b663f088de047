// Files that are written in one piece.
#pragma once

#include <string>
#include <string_view>

// Makes the file, or empties it, and writes the contents. None of the calls is tested: what the
// program can't write it goes on without.
void write_whole(const std::string &path, std::string_view contents);
