// Writes the tutorial archive under the name that it has for itself.

#include "driver/tutorial.h"

#include <cstdio>
#include <string>

#include "driver/whole_file.h"

namespace {

constexpr std::size_t GZIP_HEADER_SIZE = 10;

// The member's name stands behind the gzip header; the archive is named like it, as a "tgz".
std::string archive_name()
{
    const std::string_view bytes(reinterpret_cast<const char *>(tutorial_archive),
                                 tutorial_archive_size);
    const std::string_view member = bytes.substr(GZIP_HEADER_SIZE);
    return std::string(member.substr(0, member.find('.') + 1)).append("tgz");
}

} // namespace

void write_tutorial()
{
    const std::string name = archive_name();
    printf("____________________________________\n"
           "WRITING TARRED GZIPPED TUTORIAL FILE `%s' (man,doc,cfg&&examples)...\n"
           "~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~\n",
           name.c_str());
    write_whole(name, {reinterpret_cast<const char *>(tutorial_archive), tutorial_archive_size});
}
