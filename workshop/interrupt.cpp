// The handler raises the state in which all further handlers of a program return at once. MAPCAR
// and a BREAK clear it, so a timer raises it again until the run has come back.

#include "workshop/interrupt.h"

#include <csignal>
#include <sys/time.h>

#include "terminal/keypress.h"
#include "vm/engine.h"
#include "vm/machine.h"

namespace {

constexpr suseconds_t TICK = 10000; // microseconds

volatile sig_atomic_t noted = 0;
volatile sig_atomic_t is_running = 0;

void set_timer(suseconds_t interval)
{
    const itimerval time = {{0, interval}, {0, interval}};
    setitimer(ITIMER_REAL, &time, nullptr);
}

void unwind()
{
    rt_ctrl->rt_error_code = UNWIND_EXIT;
    rt_ctrl->rt_noterror = 0;
}

void on_interrupt(int)
{
    noted = 1;
    if (!is_running) return;
    unwind();
    set_timer(TICK);
}

void on_tick(int)
{
    if (is_running && noted) unwind();
}

// Without a restart of system calls: a wait for input ends too.
void handle(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

} // namespace

interrupt_watch::interrupt_watch()
{
    noted = 0;
    is_running = 1;
}

interrupt_watch::~interrupt_watch()
{
    is_running = 0;
    set_timer(0);
    noted = 0;
}

bool interrupt_watch::was_interrupted() const { return noted != 0; }

void note_interrupts()
{
    the_engine.interruptible = 1;
    handle(SIGINT, on_interrupt);
    handle(SIGALRM, on_tick);
    *former_interrupt_handler = on_interrupt; // what a wait for a key calls and puts back
    interrupt_ends_wait = true;
}

bool take_interrupt()
{
    const bool was = noted != 0;
    noted = 0;
    return was;
}
