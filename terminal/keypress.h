// Single keys from the terminal, without echo and without line editing. Behind ACCEPT and
// SCAN_CONSOLE. Raw mode lasts for one call: between calls the terminal is as the shell left it.
#pragma once

#include "kestrin/types.h"

using interrupt_handler = void (*)(int signal);

// The thread's slot for the SIGINT handler of a module that had one before; term_keypressed() puts
// it back. Set-up of a thread lets this point at a slot that holds NULL. NULL here counts as an
// empty slot: SIGINT then gets its default action back.
extern constinit thread_local interrupt_handler *former_interrupt_handler;

// Reads one key and returns its byte; 0 if there is none. `wait` is 1: waits without limit; 0: only
// looks; anything else: waits at most that many microseconds. The interrupt key ends the process
// with status 1, the terminal restored; so do failures, with a report. Does term_init(0) first if
// needed.
UCH term_keypressed(ULO wait);

// true: keeps the terminal's state and enters raw mode. false: restores the state that was kept
// last. Silent where the descriptor is no terminal.
void RAW_TTY_MODE(bool on);
