// Usage and versions.
#pragma once

#include <cstdio>

#include "driver/session.h"

// Prints the usage with the values that are in force to stdout or stderr. On stderr a status line
// ends it, on stdout the tutorial archive is written.
void usage_info(FILE *stream, const session &s);
// Prints the versions of all parts to stdout; `slow` types them out at the machine's speed.
void print_versions(bool slow);
