// The time reports of a talking run.
#pragma once

#include "driver/session.h"
#include "strings/fatal.h"

// Begins the time of the preparation; a failing system call ends the process with the site's
// report.
void reset_time(session *s, const fatal_site &site);
// Ends it, tells it and begins the time of the run.
void report_preparation(session *s);
void report_run(session *s);
