// The native stack, on which handlers and passes recurse: how much there is and when it ends.
#pragma once

#include "kestrin/types.h"
#include "strings/fatal.h"

// Address in the calling function's frame: where the stack stands.
inline const CHR *stack_pointer()
{
#if defined(__x86_64__)
    const CHR *sp;
    asm("mov %%rsp, %0" : "=r"(sp));
    return sp;
#else
    return static_cast<const CHR *>(__builtin_frame_address(0));
#endif
}

// Lowest address at which a recursion of the calling thread may go on; NULL if it is not known.
// Room for the system library's own needs lies below.
extern constinit thread_local const CHR *stack_floor;

// For the recursions of passes: ends the process with the row's report where the stack is used up.
inline void check_stack(const fatal_site &site)
{
    if (stack_pointer() < stack_floor) [[unlikely]]
        fatal(site);
}

// Finds the floor of the calling thread's stack, if it is not known yet.
void find_stack_floor();

// Calls `function` on a large stack of its own, whose pages are taken as they are touched; on the
// caller's stack if there is no address space for one. `function` must not return.
[[noreturn]] void run_on_large_stack(void (*function)());
