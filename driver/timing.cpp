// Time reports: differences of two points, in seconds and microseconds.

#include "driver/timing.h"

#include <cstdio>

FATAL_SITE(USAGE_PREPARED, "kestrin", "main", 104)
FATAL_SITE(USAGE_RUN, "kestrin", "main", 105)
FATAL_SITE(USAGE_DONE, "kestrin", "main", 106)

namespace {

timeval difference(const timeval &from, const timeval &to)
{
    timeval d;
    timersub(&to, &from, &d);
    return d;
}

double seconds(const timeval &t)
{
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

time_point take_time(const fatal_site &site)
{
    time_point point = {};
    if (getrusage(RUSAGE_SELF, &point.used) != 0)
        fatal(site, "Failed while getting used resource info from the OS kernel.", "getrusage");
    gettimeofday(&point.now, nullptr);
    return point;
}

void print_used(const CHR *by, const timeval &t)
{
    printf("   Used by %s: %lu.%06lusec.\n", by, static_cast<unsigned long>(t.tv_sec),
           static_cast<unsigned long>(t.tv_usec));
}

void print_time(const time_point &from, const time_point &to)
{
    const timeval user = difference(from.used.ru_utime, to.used.ru_utime);
    const timeval system = difference(from.used.ru_stime, to.used.ru_stime);
    print_used("process", user);
    print_used(" system", system);
    printf("   Total used time: %.12Esec.\n", seconds(user) + seconds(system));
    printf("Real absolute time: %.12Esec.\n", seconds(difference(from.now, to.now)));
}

} // namespace

void reset_time(session *s, const fatal_site &site)
{
    if (!s->verbose) return;
    say(message::RESETTING_FIRST);
    s->start = take_time(site);
}

void report_preparation(session *s)
{
    if (!s->verbose) return;
    say(message::RUN_FOLLOWS);
    const time_point now = take_time(site::USAGE_PREPARED);
    say(message::TIME_TO_PREPARE);
    print_time(s->start, now);
    say(message::RESETTING_SECOND);
    say(message::RULE);
    s->start = take_time(site::USAGE_RUN);
}

void report_run(session *s)
{
    if (!s->verbose) return;
    const time_point now = take_time(site::USAGE_DONE);
    say(message::RULE);
    say(message::TIME_TO_RUN);
    print_time(s->start, now);
}
