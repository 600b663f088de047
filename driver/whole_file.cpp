// Files that are written in one piece.

#include "driver/whole_file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

void write_whole(const std::string &path, std::string_view contents)
{
    const int made = creat(path.c_str(), 0644);
    if (made >= 0) close(made);
    const int file = open(path.c_str(), O_WRONLY);
    if (file < 0) return;
    if (write(file, contents.data(), contents.size()) < 0) errno = 0;
    close(file);
}
