// Writes the tutorial archive under the name that it has for itself.

#include "driver/tutorial.h"

#include <cstdio>
#include <string>

#include "driver/whole_file.h"

// The member's name stands behind the gzip header; the archive is named like it, as a "tgz".
void write_tutorial()
{
    constexpr std::size_t gzip_header_size = 10;
    const std::string_view bytes(reinterpret_cast<const char *>(tutorial_archive),
                                 tutorial_archive_size);
    const std::string_view member = bytes.substr(gzip_header_size);
    const std::string name = std::string(member.substr(0, member.find('.') + 1)).append("tgz");
    printf("____________________________________\n"
           "WRITING TARRED GZIPPED TUTORIAL FILE `%s' (man,doc,cfg&&examples)...\n"
           "~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~\n",
           name.c_str());
    write_whole(name, bytes);
}
