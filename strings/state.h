// What the string library keeps for each thread, and the one way in which memory failures that a
// hook may soften are handled. Set up by the thread set-up of the machine; read on the failure path
// alone.
#pragma once

#include "strings/fatal.h"

struct strings_state {
    // Called when an allocation fails by the operations that honour it; they then leave their
    // target as it was. NULL: such a failure is fatal.
    void (*fault_hook)();
};

// NULL in a thread without set-up: works as a block without a hook.
extern constinit thread_local strings_state *strings_tls;

// The text of the string library's own sites.
extern const CHR *strings_fault_text;

// An allocation failed: calls the thread's hook and returns, or ends the process if there is none.
void memory_fault(fatal_site site, const CHR *text = memory_fault_text);
