// Pass Two: compiled bytecode becomes linked bytecode, valid in this process only.
#pragma once

#include "kestrin/types.h"

// Links a compiled image, a counted string, in place: code words become addresses of handlers,
// references become addresses. The global function set must have been linked before code that calls
// it. A linked image must not be linked again and must stay where it is while it runs. The code
// must come from this run's compiler or have passed the verifier.
void kestrin_link(CHR *code);
