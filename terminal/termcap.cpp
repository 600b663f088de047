// Finds terminal entries and answers for their capabilities; asked by terminal.cpp alone. Files are
// untrusted text: an entry is cut at a fixed size, a chain of references at 16 names, and a
// capability is looked for in the joined entry, which always ends with a colon.
#include "terminal/termcap.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "terminal/capability.h"

SSH ospeed = 0;
CHR PC = '\0';

namespace {

constexpr const CHR *DATABASE = "/etc/termcap";
constexpr int LINE_ROOM = 256;
constexpr std::size_t ENTRY_MOST = 4093; // bytes of an entry that are kept

term_text entry;

// The names of an entry: the field that a colon, a newline or the end closes.
std::string_view field_of_names(const CHR *line)
{
    const CHR *end = line;
    while (*end && *end != ':' && *end != '\n') end++;
    return {line, static_cast<std::size_t>(end - line)};
}

bool names_include(const CHR *line, std::string_view name)
{
    std::string_view names = field_of_names(line);
    for (bool more = !names.empty(); more;) {
        std::size_t size = names.find('|');
        if (names.substr(0, size) == name) return true;
        more = size != names.npos;
        if (more) names.remove_prefix(size + 1);
    }
    return false;
}

// The pieces of an entry joined to one text.
struct entry_text {
    term_text bytes;
    std::size_t line = 0; // where the current line of the file starts in it

    // Adds a line, or the piece of it that was read. True if the entry goes on behind it.
    bool add(const CHR *piece)
    {
        piece += strspn(piece, " \t");
        for (; *piece && *piece != '\n'; piece++) {
            bytes.push_back(*piece);
            if (bytes.size() == ENTRY_MOST) return false;
        }
        if (*piece == '\0') return true;
        if (bytes.size() == line || bytes.back() != '\\') return false;
        bytes.pop_back();
        line = bytes.size();
        return true;
    }
};

// A file that is no regular one is no database: it could not be rewound, or would not come to an
// end.
FILE *open_database(const CHR *path)
{
    struct stat about;
    if (stat(path, &about) != 0 || !S_ISREG(about.st_mode)) return nullptr;
    return fopen(path, "r");
}

// Merges the entry of `name` and those that it refers to. False if the database can't be opened.
bool collect(const CHR *path, const CHR *name, term_texts *list)
{
    FILE *stream = open_database(path);
    if (stream == nullptr) return false;
    term_texts names = {name};
    for (ULO i = 0; i < names.size(); i++) {
        CHR *found = get_one_entry(stream, names[i].c_str());
        if (found == nullptr) break;
        parse_entry(found, list, &names);
        free(found);
    }
    fclose(stream);
    return true;
}

bool is_path(const CHR *variable)
{
    return variable && *variable && (variable[0] == '/' || variable[1] == ':');
}

void add_window_size(term_texts *list)
{
    winsize window{};
    if (ioctl(0, TIOCGWINSZ, &window) != 0 || window.ws_row == 0 || window.ws_col == 0) return;
    set_number(list, "li#", window.ws_row);
    set_number(list, "co#", window.ws_col);
}

// What follows the capability `id` with this mark behind its name; NULL if there is none.
const CHR *find_capability(const CHR *id, CHR mark)
{
    if (id[0] == '\0' || id[1] == '\0') return nullptr;
    const CHR pattern[] = {':', id[0], id[1], mark, '\0'};
    const CHR *place = strstr(entry.c_str(), pattern);
    return place ? place + 4 : nullptr;
}

// A string up to the first colon behind it that no backslash hides.
std::string_view string_value(const CHR *text)
{
    std::size_t size = 0;
    while (text[size] && (text[size] != ':' || (size > 0 && text[size - 1] == '\\'))) size++;
    return {text, size};
}

CHR *decode(CHR *out, std::string_view text)
{
    while (!text.empty()) {
        escape next{static_cast<UCH>(text[0]), 1};
        if (text[0] == '\\')
            next = read_escape(text);
        else if (text[0] == '^' && text.size() > 1)
            next = {UCH(text[1] & 31), 2};
        *out++ = static_cast<CHR>(next.byte);
        text.remove_prefix(next.size);
    }
    return out;
}

// A delay in tenths of a millisecond, in proportion to `affcnt` if it says so. Moves `*at` behind
// it. What is beyond an int counts as the greatest one.
SLO read_delay(const CHR **at, int affcnt)
{
    SLO delay = 0;
    for (; **at >= '0' && **at <= '9'; ++*at) {
        if (delay < INT_MAX) delay = (delay + (**at - '0')) * 10;
    }
    if (**at == '.') {
        ++*at;
        if (**at >= '0' && **at <= '9') delay += *(*at)++ - '0';
    }
    if (delay > INT_MAX) delay = INT_MAX;
    if (**at == '*') {
        ++*at;
        delay *= affcnt;
    }
    return delay < INT_MAX ? delay : INT_MAX;
}

// Padding bytes that take `delay` at the line speed. A negative entry of the table is the speed in
// hundreds of baud.
SLO padding(SLO delay)
{
    static constexpr SSH speeds[] = {0,   50,  75,  110, 134, 150, -3,   -6,   -12,  -18,
                                     -20, -24, -36, -48, -72, -96, -192, -384, -576, -1152};
    if (ospeed < 0 || ospeed >= SSH(sizeof speeds / sizeof *speeds)) return 0;
    SLO speed = speeds[ospeed];
    SLO thousandths = (delay * speed + 500) / 1000;
    return speed < 0 ? -thousandths : (thousandths + 50) / 100;
}

} // namespace

CHR *get_one_entry(FILE *stream, const CHR *name)
{
    CHR line[LINE_ROOM];
    entry_text text;
    bool begun = false, more = true;
    rewind(stream);
    while (more && fgets(line, LINE_ROOM, stream)) {
        if (line[0] == '#') continue;
        if (!begun) begun = names_include(line, name);
        if (begun) more = text.add(line);
    }
    if (!begun) return nullptr;
    const std::size_t size = text.bytes.size() + 1;
    return static_cast<CHR *>(memcpy(term_reallocate(nullptr, size), text.bytes.c_str(), size));
}

int tgetent(CHR *, const CHR *name)
{
    term_texts list;
    std::string_view names = name;
    const CHR *variable = getenv("TERMCAP");
    if (!is_path(variable) && variable && names_include(variable, name)) {
        parse_entry(variable, &list, nullptr);
        names = field_of_names(variable);
    } else if (!collect(is_path(variable) ? variable : DATABASE, name, &list)) {
        return -1;
    }
    if (list.empty()) return 0;
    add_window_size(&list);
    entry = join_entry(names, list, joined_size(names, list));
    return 1;
}

void free_entry() { entry = {}; }

int tgetnum(const CHR *id)
{
    const CHR *digits = find_capability(id, '#');
    return digits ? static_cast<int>(atol(digits)) : -1;
}

int tgetflag(const CHR *id) { return find_capability(id, ':') != nullptr; }

CHR *tgetstr(const CHR *id, CHR **buf)
{
    const CHR *text = find_capability(id, '=');
    if (text == nullptr) return nullptr;
    std::string_view value = string_value(text);
    *buf = static_cast<CHR *>(term_reallocate(*buf, value.size() + 1));
    *decode(*buf, value) = '\0';
    return *buf;
}

void tputs(const CHR *string, int affcnt, int (*outc)(int))
{
    if (string == nullptr) return;
    SLO delay = read_delay(&string, affcnt);
    while (*string) outc(static_cast<UCH>(*string++));
    for (SLO count = padding(delay); count > 0; count--) outc(static_cast<UCH>(PC));
}
