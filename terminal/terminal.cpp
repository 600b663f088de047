// Fills the terminal's values at the start of every run and builds cursor strings. Called by the
// driver and by the *_TERM handlers. All loops go over the rows of terminal.def; nothing here
// fails, a value that can't be found has its default.
#include "terminal/terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <string>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "strings/scratch.h"
#include "terminal/cursor.h"
#include "terminal/termcap.h"

constinit terminal_record terminal;

namespace {

struct number_row {
    const CHR *name;
    SSH terminal_record::*value;
    const CHR *capability;
    SSH standard, few, least;
    const CHR *what;
};

struct string_row {
    const CHR *name;
    CHR *terminal_record::*value;
    const CHR *capability; // NULL for the terminal's own name
    const CHR *standard;
    const CHR *what;
};

#define TERM_NAME(name, standard)
#define TERM_STRING(name, capability, standard, what)
#define TERM_NUMBER(name, capability, standard, few, least, what)                                  \
    {#name, &terminal_record::name, capability, standard, few, least, what},
constexpr number_row numbers[] = {
#include "terminal/terminal.def"
};
#undef TERM_NAME
#undef TERM_STRING
#undef TERM_NUMBER

#define TERM_NAME(name, standard) {#name, &terminal_record::name, nullptr, standard, nullptr},
#define TERM_STRING(name, capability, standard, what)                                              \
    {#name, &terminal_record::name, capability, standard, what},
#define TERM_NUMBER(name, capability, standard, few, least, what)
constexpr string_row strings[] = {
#include "terminal/terminal.def"
};
#undef TERM_NAME
#undef TERM_STRING
#undef TERM_NUMBER

constexpr USH NO_NUMBER = 0xFFFF;

void load_defaults()
{
    for (const number_row &row : numbers) terminal.*row.value = row.standard;
    for (const string_row &row : strings) get_std_buff(&(terminal.*row.value), row.standard);
    terminal.warning = false;
}

void warn(std::string *status, std::string_view text)
{
    terminal.warning = true;
    *status += text;
}

void warn_missing(std::string *status, const CHR *what)
{
    warn(status, std::string("`") + what + "' capability was not found, default value is used!\n");
}

void read_numbers(std::string *status)
{
    for (const number_row &row : numbers) {
        USH number = static_cast<USH>(tgetnum(row.capability));
        if (number == NO_NUMBER)
            warn_missing(status, row.what);
        else
            terminal.*row.value = static_cast<SSH>(number);
    }
}

void read_strings(std::string *status)
{
    CHR *text = nullptr;
    for (const string_row &row : strings) {
        if (row.capability == nullptr) continue;
        if (tgetstr(row.capability, &text))
            get_std_buff(&(terminal.*row.value), text);
        else
            warn_missing(status, row.what);
    }
    free(text);
}

// The terminal's type: the one asked for, else that of the environment; the default stays if
// neither is there.
void choose_type(std::string *status, const CHR *asked)
{
    const CHR *type = asked && *asked ? asked : getenv("TERM");
    if (type && *type)
        get_std_buff(&terminal.TERM_TYPE, type);
    else
        warn(status, "Environment variable TERM has not been found!\n");
}

void read_database(std::string *status)
{
    free_entry();
    if (tgetent(nullptr, terminal.TERM_TYPE) < 1) {
        warn(status, "Cannot find terminal section in terminal database!\n");
    } else {
        read_numbers(status);
        read_strings(status);
    }
    free_entry();
}

void apply_limits(std::string *status)
{
    for (const number_row &row : numbers) {
        SSH &value = terminal.*row.value;
        if (value >= row.few) continue;
        warn(status, std::string("`") + row.what + "' capability is less than " +
                         std::to_string(row.few) + "!\n");
        if (value < row.least) value = row.least;
    }
}

// Values as "NAME=`value'", three on a line.
struct settings_list {
    std::string *status;
    int count = 0;

    void add(const CHR *name, std::string_view value)
    {
        *status += count == 0 ? "  " : count % 3 == 0 ? "';\n  " : "'; ";
        ((*status += name) += "=`") += value;
        count++;
    }

    void add_string(const string_row &row)
    {
        scratch shown;
        add(row.name, view(strunraw(&shown.s, terminal.*row.value)));
    }

    void add_numbers()
    {
        for (const number_row &row : numbers) add(row.name, std::to_string(terminal.*row.value));
    }

    void finish() { *status += "'.\n"; }
};

// The name comes first, then the numbers, then the other strings.
void report_settings(std::string *status)
{
    *status += "Current termcap settings:\n";
    settings_list list{status};
    list.add_string(strings[0]);
    list.add_numbers();
    for (const string_row &row : std::span(strings).subspan(1)) list.add_string(row);
    list.finish();
}

// A descriptor that a descriptor set can't hold can't be waited for, so it counts as not opened.
void open_tty()
{
    int tty = open("/dev/tty", O_RDONLY);
    if (tty >= FD_SETSIZE) close(tty);
    terminal.tty = tty >= 0 && tty < FD_SETSIZE ? tty : 2;
}

void set_from_window(std::string *status)
{
    winsize window{};
    ioctl(terminal.tty, TIOCGWINSZ, &window);
    const USH sizes[] = {window.ws_row, window.ws_col};
    for (int i = 0; i < 2; i++) {
        SSH value = static_cast<SSH>(sizes[i]);
        if (value < 1) {
            value = numbers[i].standard;
            terminal.warning = true;
        }
        terminal.*numbers[i].value = value;
    }
    apply_limits(status);
}

// Makes `*targ` the expansion of `form`, which may be the target's own string.
CHR *build_cursor(CHR **targ, const CHR *form, std::int32_t y, std::int32_t x)
{
    if (form == nullptr) return *targ;
    std::int32_t arg[2] = {y, x};
    return get_std_buff(targ, expand_cursor(form, UP, BC, arg).c_str());
}

void begin_cursor()
{
    if (!terminal.loaded) term_init(nullptr);
    if (terminal.before_cursor) terminal.before_cursor(nullptr);
}

void end_cursor()
{
    if (terminal.after_cursor) terminal.after_cursor();
}

} // namespace

void term_init(const CHR *name)
{
    if (terminal.before_init) terminal.before_init(name);
    scratch asked; // the text may be one of those that the defaults replace
    get_std_buff(&asked.s, name);
    load_defaults();
    free_string(&terminal.reinit_status);
    std::string status;
    status.reserve(1024);
    if (terminal.loaded) status = "Warning: duplicate loading of termcap information!\n";
    choose_type(&status, asked.s);
    read_database(&status);
    apply_limits(&status);
    report_settings(&status);
    assign(&terminal.init_status, status);
    if (terminal.wants_tty) open_tty();
    terminal.loaded = true;
    if (terminal.after_init) terminal.after_init();
}

void term_reinit(const CHR *argument)
{
    if (!terminal.loaded) return term_init(nullptr);
    if (terminal.before_init) terminal.before_init(argument);
    terminal.warning = false;
    std::string status;
    set_from_window(&status);
    status += "Current termcap reinit settings:\n";
    settings_list list{&status};
    list.add_numbers();
    list.finish();
    assign(&terminal.reinit_status, status);
    if (terminal.after_init) terminal.after_init();
}

CHR *term_pre_gotoYX(CHR **targ, SSH y, SSH x)
{
    begin_cursor();
    if (y < 0 || x < 0)
        equ(targ, terminal.GOTOCURSOR_TERM);
    else
        build_cursor(targ, terminal.GOTOCURSOR_TERM, y, x);
    end_cursor();
    return *targ;
}

CHR *term_pre_goto1YX(CHR **targ, USH y, USH x)
{
    begin_cursor();
    build_cursor(targ, *targ, y, x);
    end_cursor();
    return *targ;
}
