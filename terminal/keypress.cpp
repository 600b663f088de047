// Reads single keys for ACCEPT and SCAN_CONSOLE. Each call enters raw mode and leaves it again, and
// handles the interrupt key in between, so that the terminal is never left raw, whatever ends the
// call.
#include "terminal/keypress.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include "strings/fatal.h"
#include "terminal/terminal.h"

constinit thread_local interrupt_handler *former_interrupt_handler = nullptr;

namespace {

constexpr ULO WAIT_FOREVER = 1;
constexpr ULO MICROSECONDS = 1000000;

// The state that raw mode replaced. Not kept where the descriptor is no terminal.
termios kept_state;
bool state_kept = false;

void enter_raw_mode()
{
    state_kept = tcgetattr(terminal.tty, &kept_state) == 0;
    if (!state_kept) return;
    termios raw = kept_state;
    raw.c_lflag &=
        ~tcflag_t(ICANON | ECHO | ECHOE | ECHOK | ECHONL); // ISIG keeps the interrupt key
    raw.c_oflag &= ~tcflag_t(OCRNL | ONOCR | ONLRET);
    raw.c_oflag |= OPOST | ONLCR;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(terminal.tty, TCSADRAIN, &raw);
}

// Keeps errno, which a report of what came before may still need.
void leave_raw_mode()
{
    int fault = errno;
    if (state_kept) tcsetattr(terminal.tty, TCSADRAIN, &kept_state);
    errno = fault;
}

interrupt_handler former_handler()
{
    return former_interrupt_handler ? *former_interrupt_handler : nullptr;
}

// Runs while a key is waited for and nothing else is in progress, so that exit() is safe.
void end_by_interrupt(int number)
{
    RAW_TTY_MODE(false);
    interrupt_handler former = former_handler();
    if (former) former(number);
    exit(1);
}

int handle_interrupt(interrupt_handler handler)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGINT, &action, nullptr);
}

[[noreturn]] void fail(fatal_site site, const CHR *text, const CHR *syscall)
{
    RAW_TTY_MODE(false);
    fatal(site, text, syscall);
}

bool key_is_there(ULO wait)
{
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(terminal.tty, &ready);
    timeval limit = {time_t(wait / MICROSECONDS), suseconds_t(wait % MICROSECONDS)};
    int count = select(terminal.tty + 1, &ready, nullptr, nullptr, &limit);
    if ((count & 0xFFFF) == 0xFFFF) {
        fail(fatal_site::RAW_SELECT, "RAW_TTY: synchronous I/O multiplexing error.", "select");
    }
    return FD_ISSET(terminal.tty, &ready);
}

UCH read_key()
{
    UCH key = 0;
    if (read(terminal.tty, &key, 1) < 0) {
        fail(fatal_site::RAW_READ, "RAW_TTY: error getting char from /dev/tty.", "read");
    }
    return key;
}

void restore_interrupt()
{
    static constexpr const CHR *text = "RAW_TTY: error restoring default signal handler.";
    interrupt_handler former = former_handler();
    if (former) {
        if (handle_interrupt(former) != 0) {
            fatal(fatal_site::RAW_SIGACTION_RESTORE, text, "sigaction");
        }
    } else if (signal(SIGINT, SIG_DFL) == SIG_ERR) {
        fatal(fatal_site::RAW_SIGNAL, text, "signal");
    }
}

} // namespace

void RAW_TTY_MODE(bool on)
{
    if (on)
        enter_raw_mode();
    else
        leave_raw_mode();
}

UCH term_keypressed(ULO wait)
{
    if (!terminal.loaded) term_init(nullptr);
    enter_raw_mode();
    if (handle_interrupt(end_by_interrupt) != 0) {
        fail(fatal_site::RAW_SIGACTION, "RAW_TTY: error creating signal handler.", "sigaction");
    }
    UCH key = 0;
    if (wait == WAIT_FOREVER || key_is_there(wait)) key = read_key();
    leave_raw_mode();
    restore_interrupt();
    return key;
}
