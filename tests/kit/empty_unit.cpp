// The extension unit of the unit tests: nothing of its own. An archive member, so that a test may
// link another unit in its place.

#include "kestrin/unit.h"

extern const INSTRUCTION_STRU INSTRUCTION_SET[] = {{nullptr, 0, 0, nullptr, nullptr}};
extern const ULO INSTRUCTIONS = 0;
const CHR *VERSION_CKSTUDF___ = "";

void startup_callback() {}
void taskjob_end_callback(ULO) {}
void user_io_callback(SLO, CHR **) {}
