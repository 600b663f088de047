// What the string library keeps for each thread, and the one way in which memory failures that a
// hook may soften are handled. Set up by the thread set-up of the machine; read on the failure path
// alone.
#pragma once

#include "kestrin/strings.h"
#include "strings/fatal.h"

// The text of the string library's own sites.
extern const CHR *strings_fault_text;

// An allocation failed: calls the thread's hook and returns, or ends the process if there is none.
void memory_fault(fatal_site site, const CHR *text = memory_fault_text);
