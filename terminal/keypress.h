// Single keys from the terminal, without echo and without line editing. Behind ACCEPT and
// SCAN_CONSOLE. Raw mode lasts for one call: between calls the terminal is as the shell left it,
// and the process handles no signal.
#pragma once

#include "kestrin/types.h"

using interrupt_handler = void (*)(int signal);

// The thread's slot for the SIGINT handler of a module that had one before; term_keypressed() puts
// it back. The set-up of a thread makes the slot, and it holds NULL until a module fills it. Where
// it holds none, SIGINT gets its default action back.
extern constinit thread_local interrupt_handler *former_interrupt_handler;

// Where this is set and the slot holds a handler, an interrupt calls the handler and ends the wait,
// without a key, and not the process.
extern constinit thread_local bool interrupt_ends_wait;

// Reads one key and returns its byte; 0 if there is none. `wait` is 1: waits without limit; 0: only
// looks; anything else: waits at most that many microseconds. Does term_init(0) first if needed.
//
// The terminal comes back as it was, whatever ends the call. The interrupt key ends the process
// with status 1; so do failures, with a report. SIGTERM, SIGHUP and SIGQUIT end it as they do
// elsewhere. SIGTSTP stops it, and the wait goes on with SIGCONT. One that is ignored stays so;
// handlers and the thread's signal mask are what they were afterwards. A process in the background
// stops until it is in the foreground.
UCH term_keypressed(ULO wait);

// true: keeps the terminal's state and enters raw mode. false: leaves it, if it is in force, for
// that state. Silent where the descriptor is no terminal.
void RAW_TTY_MODE(bool on);
