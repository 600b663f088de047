// The time reports of a talking run.
#pragma once

#include <sys/resource.h>
#include <sys/time.h>

#include "strings/fatal.h"

// A point of the process's time. All zero where nobody asks.
struct time_point {
    rusage used;
    timeval now;
};

// Takes a point; a failing system call ends the process with the row's report.
time_point take_time(const fatal_site &site);
// Prints the four lines of what has passed between two points.
void print_time(const time_point &from, const time_point &to);
