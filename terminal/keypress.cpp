// Reads single keys for ACCEPT and SCAN_CONSOLE. Each call enters raw mode and leaves it again, and
// handles the signals that would end or stop the process in between. They are held back while the
// call begins and while it ends, and come through in the wait alone: so no moment is left in which
// one of them finds the terminal raw and no handler, and a handler runs while nothing else is in
// progress on the thread.
#include "terminal/keypress.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <pthread.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include "strings/fatal.h"
#include "terminal/terminal.h"

FATAL_SITE(RAW_SIGACTION, "trmnldrv", "keypressed", 1)
FATAL_SITE(RAW_SELECT, "trmnldrv", "keypressed", 2)
FATAL_SITE(RAW_READ, "trmnldrv", "keypressed", 3)
FATAL_SITE(RAW_SIGNAL, "trmnldrv", "keypressed", 4)
FATAL_SITE(RAW_SIGACTION_RESTORE, "trmnldrv", "keypressed", 5)

constinit thread_local interrupt_handler *former_interrupt_handler = nullptr;
constinit thread_local bool interrupt_ends_wait = false;

namespace {

constexpr ULO WAIT_FOREVER = 1;
constexpr ULO MICROSECONDS = 1000000;

// Signals that do in a wait what they would do outside of it, on a terminal that is not raw.
constexpr int PASSED_ON[] = {SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT};

struct key_wait {
    pthread_t reader;    // the thread that waits
    sigset_t former_set; // signals that it holds back outside the call
    struct sigaction former_actions[std::size(PASSED_ON)];
    termios kept_state;                   // what raw mode replaced
    bool is_raw;                          // never where the descriptor is no terminal
    volatile sig_atomic_t is_interrupted; // by a signal that ends the wait alone
};

key_wait wait_in_progress = {};

// -- The terminal ------------------------------------------------------------------------------

// Another signal's handler must not cut the change short.
void set_state(const termios *state)
{
    while (tcsetattr(terminal.tty, TCSADRAIN, state) != 0 && errno == EINTR) {}
}

// In the background the state is another program's, and one that drains the terminal is stopped
// until it is in the foreground. Signals are not held back meanwhile.
void await_foreground()
{
    while (tcdrain(terminal.tty) != 0 && errno == EINTR) {}
}

bool is_in_background()
{
    const pid_t foreground = tcgetpgrp(terminal.tty);
    return foreground > 0 && foreground != getpgrp();
}

void enter_raw_mode()
{
    key_wait &w = wait_in_progress;
    if (!w.is_raw && tcgetattr(terminal.tty, &w.kept_state) != 0) return;
    termios raw = w.kept_state;
    raw.c_lflag &=
        ~tcflag_t(ICANON | ECHO | ECHOE | ECHOK | ECHONL); // ISIG keeps the interrupt key
    raw.c_oflag &= ~tcflag_t(OCRNL | ONOCR | ONLRET);
    raw.c_oflag |= OPOST | ONLCR;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    w.is_raw = true;
    set_state(&raw);
}

void leave_raw_mode()
{
    key_wait &w = wait_in_progress;
    if (w.is_raw) set_state(&w.kept_state);
    w.is_raw = false;
}

// -- Signals -----------------------------------------------------------------------------------

sigset_t watched_signals()
{
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    for (int number : PASSED_ON) sigaddset(&watched, number);
    return watched;
}

// Returns what was held back already.
sigset_t hold_signals()
{
    const sigset_t watched = watched_signals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &watched, &before);
    return before;
}

bool handle(int number, interrupt_handler handler, const sigset_t &held)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = held;
    return sigaction(number, &action, nullptr) == 0;
}

bool handle_interrupt(interrupt_handler handler)
{
    sigset_t none;
    sigemptyset(&none);
    return handle(SIGINT, handler, none);
}

void end_by_interrupt(int number);
void pass_on(int number);

// A signal that is ignored stays so. False with errno set if the system refuses. Of several
// signals that come together the one that ends the process goes first.
bool watch_signals()
{
    const sigset_t watched = watched_signals();
    struct sigaction *former = wait_in_progress.former_actions;
    for (int number : PASSED_ON) {
        if (sigaction(number, nullptr, former) != 0) return false;
        if (former->sa_handler != SIG_IGN && !handle(number, pass_on, watched)) return false;
        former++;
    }
    return handle_interrupt(end_by_interrupt);
}

// All but SIGINT.
void put_actions_back()
{
    const struct sigaction *former = wait_in_progress.former_actions;
    for (int number : PASSED_ON) sigaction(number, former++, nullptr);
}

interrupt_handler former_handler()
{
    return former_interrupt_handler ? *former_interrupt_handler : nullptr;
}

void put_interrupt_back()
{
    static constexpr const CHR *text = "RAW_TTY: error restoring default signal handler.";
    interrupt_handler former = former_handler();
    if (former) {
        if (!handle_interrupt(former)) {
            fatal(site::RAW_SIGACTION_RESTORE, text, "sigaction");
        }
    } else if (signal(SIGINT, SIG_DFL) == SIG_ERR) {
        fatal(site::RAW_SIGNAL, text, "signal");
    }
}

// A unit's own thread may be the one that gets a signal. The reader is where it belongs.
bool is_for_this_thread(int number)
{
    if (pthread_equal(pthread_self(), wait_in_progress.reader)) return true;
    pthread_kill(wait_in_progress.reader, number);
    return false;
}

// Ahead of the end or the stop of the process.
void give_terminal_back()
{
    if (!is_in_background()) leave_raw_mode();
    put_actions_back();
}

// Runs in the wait, so that exit() is safe.
void end_by_interrupt(int number)
{
    if (!is_for_this_thread(number)) return;
    interrupt_handler former = former_handler();
    if (former && interrupt_ends_wait) {
        wait_in_progress.is_interrupted = 1;
        return former(number);
    }
    const sigset_t before = hold_signals();
    give_terminal_back();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (former) former(number);
    exit(1);
}

// Takes the signal again as if there were no wait: it ends or stops the process, or calls a
// handler of the unit's. Goes on waiting if it comes back. The others are held back on entry.
void pass_on(int number)
{
    if (!is_for_this_thread(number)) return;
    const int fault = errno;
    give_terminal_back();
    raise(number);
    sigset_t outside = wait_in_progress.former_set;
    sigdelset(&outside, number);
    pthread_sigmask(SIG_SETMASK, &outside, nullptr);
    await_foreground();
    hold_signals();
    watch_signals();
    enter_raw_mode();
    errno = fault;
}

// -- The wait ----------------------------------------------------------------------------------

void end_wait()
{
    await_foreground();
    hold_signals();
    leave_raw_mode();
    put_actions_back();
    put_interrupt_back();
    pthread_sigmask(SIG_SETMASK, &wait_in_progress.former_set, nullptr);
}

[[noreturn]] void fail(const fatal_site &site, const CHR *text, const CHR *syscall)
{
    const int fault = errno;
    end_wait();
    errno = fault;
    fatal(site, text, syscall);
}

void begin_wait()
{
    await_foreground();
    wait_in_progress.reader = pthread_self();
    wait_in_progress.is_interrupted = 0;
    wait_in_progress.former_set = hold_signals();
    if (!watch_signals()) {
        fail(site::RAW_SIGACTION, "RAW_TTY: error creating signal handler.", "sigaction");
    }
    enter_raw_mode();
    pthread_sigmask(SIG_SETMASK, &wait_in_progress.former_set, nullptr);
}

ULO microseconds_now()
{
    using namespace std::chrono;
    return ULO(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

// The limit counts from the start, however often a signal comes in between.
bool key_is_there(ULO wait)
{
    const ULO start = microseconds_now();
    for (;;) {
        const ULO gone = microseconds_now() - start, left = gone < wait ? wait - gone : 0;
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(terminal.tty, &ready);
        timeval limit = {time_t(left / MICROSECONDS), suseconds_t(left % MICROSECONDS)};
        const int count = select(terminal.tty + 1, &ready, nullptr, nullptr, &limit);
        if ((count & 0xFFFF) != 0xFFFF) return FD_ISSET(terminal.tty, &ready);
        if (wait_in_progress.is_interrupted) return false;
        if (errno != EINTR) {
            fail(site::RAW_SELECT, "RAW_TTY: synchronous I/O multiplexing error.", "select");
        }
    }
}

UCH read_key()
{
    UCH key = 0;
    while (!wait_in_progress.is_interrupted && read(terminal.tty, &key, 1) < 0) {
        if (errno != EINTR) {
            fail(site::RAW_READ, "RAW_TTY: error getting char from /dev/tty.", "read");
        }
    }
    return key;
}

} // namespace

void RAW_TTY_MODE(bool on) { on ? enter_raw_mode() : leave_raw_mode(); }

UCH term_keypressed(ULO wait)
{
    if (!terminal.loaded) term_init(nullptr);
    begin_wait();
    UCH key = 0;
    if (wait == WAIT_FOREVER || key_is_there(wait)) key = read_key();
    end_wait();
    return key;
}
