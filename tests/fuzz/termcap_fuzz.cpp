// Any bytes as a database, as an entry of the environment and as a cursor template. The first two
// bytes are the arguments of the template; an entry is asked for by the name "x".
#include <cstring>
#include <unistd.h>

#include "terminal/capability.h"
#include "terminal/cursor.h"
#include "terminal/termcap.h"
#include "tests/fuzz/fuzz.h"

namespace {

void read_as_database(std::string text)
{
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    if (stream == nullptr) return;
    char *entry = get_one_entry(stream, "x");
    fclose(stream);
    if (entry == nullptr) return;
    require(strlen(entry) <= 4093);
    capability_list list;
    name_list names("x");
    parse_entry(entry, &list, &names);
    free(join_entry("x", list, joined_size("x", list)));
    free(entry);
}

void read_as_environment(const std::string &text)
{
    setenv("TERMCAP", ("x|" + text).c_str(), 1);
    if (tgetent(nullptr, "x") != 1) return;
    char *value = nullptr;
    for (const char *id : {"ab", "cl", "co", "x:", "::", "tc"}) {
        require(!tgetstr(id, &value) || strlen(value) <= text.size());
        tgetnum(id);
        tgetflag(id);
    }
    free(value);
    free_entry();
}

void expand(const std::string &text, std::int32_t y, std::int32_t x)
{
    for (const char *left : {(const char *)nullptr, "left"}) {
        char lent[CURSOR_ROOM];
        std::int32_t arg[2] = {y, x};
        char *built = expand_cursor(text.c_str(), lent, "up", left, arg);
        require(strlen(built) <= text.size() * 9);
        if (built != lent) free(built);
    }
}

} // namespace

void try_input(std::string_view bytes)
{
    const std::string text(bytes);
    read_as_database(text);
    read_as_environment(text);
    input in = {bytes};
    const std::int32_t y = SCH(in.byte()) * 1000, x = in.byte();
    expand(std::string(in.rest), y, x);
}
