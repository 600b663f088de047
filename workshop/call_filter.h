// A filter of system calls: what a program may do that has its standard streams, memory, the time
// and nothing else.
#pragma once

#include <string>

// Installs it, for good. A call that it refuses fails, as if the system had refused it, and is
// noted. False with the reason in `*why` where there is no such filter.
bool install_call_filter(std::string *why);

// What has been refused, in words with commas between; empty: nothing.
std::string refused_calls();
