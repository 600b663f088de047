// What becomes native code, and when. The handlers count (vm/hot.h); this makes the code, once for
// each loop and function, and puts it in the place of the node's handler.
#pragma once

#include "vm/hot.h"

extern const native_maker native_hot, native_at_once;

// What the environment's KESTRIN_NATIVE says: 0 never, 1 what runs hot, 2 everything at first
// sight. NULL for never, and where there is no encoder for the processor. Before the first thread
// is set up.
const native_maker *choose_native_maker();
