// ACCEPT, SCAN_CONSOLE and USER_IO: what a program hears from a person at the terminal, from its
// standard input and from the extension unit.

#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "kestrin/unit.h"
#include "terminal/keypress.h"
#include "terminal/terminal.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

constexpr ULO WAIT_FOREVER = 1, ONLY_LOOK = 0;
constexpr int LINE_ROOM = 1024;

enum key : UCH { BACKSPACE = 8, NEWLINE = 10, RETURN = 13, SPACE = 32, DELETE = 127 };

bool ends_input(UCH code)
{
    if (code == NEWLINE || code == RETURN) return true;
    // No key, though the wait had no limit: what should be a terminal is a file at its end, or has
    // hung up; or an interrupt has ended the wait.
    return code == 0 && (!isatty(terminal.tty) || !rt_ctrl->rt_noterror);
}

// The part of a line editor that a program gets: deleting the last byte.
void take_key(UCH code, std::string *line)
{
    if (code == BACKSPACE || code == DELETE) {
        if (line->empty()) return;
        line->pop_back();
        fputs("\b \b", stdout);
    } else if (code >= SPACE) {
        line->push_back(static_cast<CHR>(code));
        putchar(code);
    }
    fflush(stdout);
}

CHR *read_keys(CHR **targ, const CHR *prompt)
{
    fputs(show_nuls(targ, prompt), stdout);
    fflush(stdout);
    std::string line;
    for (;;) {
        const UCH code = term_keypressed(WAIT_FOREVER);
        if (ends_input(code)) break;
        take_key(code, &line);
    }
    puts("");
    return assign(targ, line);
}

// A line with its newline, or the first part of a long one; empty at the end of the input.
CHR *read_line(CHR **targ)
{
    CHR line[LINE_ROOM] = "";
    if (fgets(line, LINE_ROOM, stdin) == nullptr) line[0] = 0;
    return get_std_buff(targ, line);
}

CHR *accept(CHR **targ, const CHR *prompt)
{
    return notempty(prompt) ? read_keys(targ, prompt) : read_line(targ);
}

// A function key sends several bytes at once. Without a key the result is one byte 0.
CHR *scan_console(CHR **targ, SLO wait)
{
    std::string keys;
    UCH code = term_keypressed(static_cast<ULO>(std::max<SLO>(wait, 0)));
    do {
        keys.push_back(static_cast<CHR>(code));
        code = term_keypressed(ONLY_LOOK);
    } while (code != 0);
    return assign(targ, keys);
}

// The callback may leave anything in the string, NULL too.
CHR *user_io(CHR **targ, SLO id, const CHR *request)
{
    equ(targ, request);
    user_io_callback(id, targ);
    return equ(targ, *targ);
}

} // namespace

HANDLER(accept) { text<accept>::run(dat_ptr, ret_dat); }
HANDLER(scan_console) { text<scan_console>::run(dat_ptr, ret_dat); }
HANDLERS(user_io, text<user_io>)
