// The tutorial: manual, examples and extension kit, which the program carries with it as a
// compressed archive.
#pragma once

#include <cstddef>

// A gzip file whose header holds the name of its member. The build packs it from tutorial/.
extern const unsigned char tutorial_archive[];
extern const std::size_t tutorial_archive_size;

// Writes the archive into the current directory, over an older one, and tells stdout. A file that
// can't be written gives no message.
void write_tutorial();
