// Time is a timer, whose signal ends the run as an error would; a program that goes on all the same
// is ended soon behind. Memory and output are limits of the system, files a filter of its calls.

#include "workshop/limits.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "strings/fatal.h"
#include "terminal/keypress.h"
#include "terminal/terminal.h"
#include "vm/engine.h"
#include "vm/machine.h"
#include "vm/stack.h"
#include "workshop/call_filter.h"
#include "workshop/verb.h"

namespace {

constexpr double LEAST = 1e-6, MOST_SECONDS = 1e7, MOST_BYTES = 1e15;
constexpr suseconds_t TICK = 10000; // microseconds
constexpr int PATIENCE = 25;        // ticks until a run has to be at its end

limits held;
bool is_stack_bound = false; // by the memory
volatile sig_atomic_t is_running = 0, ticks_over = 0, is_output_over = 0, is_memory_over = 0;

// -- Reading them ------------------------------------------------------------------------------

struct bound_row {
    std::string_view name;
    bound limits::*value;
    std::string_view units; // each 1024 times the one before, the first 1024 bytes
    double most;
};

constexpr bound_row rows[] = {
    {"time", &limits::time, "", MOST_SECONDS},
    {"memory", &limits::memory, "KMG", MOST_BYTES},
    {"output", &limits::output, "KMG", MOST_BYTES},
};

bool read_bound(const bound_row &row, std::string_view text, limits *into)
{
    double number = 0;
    const CHR *end = text.data() + text.size();
    auto read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (read.ec != std::errc()) return false;
    const auto unit = read.ptr == end ? row.units.npos : row.units.find(*read.ptr);
    if (unit != row.units.npos) {
        number *= static_cast<double>(ULO(1024) << 10 * unit);
        read.ptr++;
    }
    into->*row.value = {text, number};
    return read.ptr == end && number >= LEAST && number <= row.most;
}

bool read_one(std::string_view text, limits *into)
{
    const auto middle = std::min(text.find('='), text.size());
    for (const bound_row &row : rows)
        if (text.substr(0, middle) == row.name)
            return middle < text.size() && read_bound(row, text.substr(middle + 1), into);
    return false;
}

// -- What is told at the end -------------------------------------------------------------------

// A copy of the standard error, which the program may close, behind the numbers of its own files.
int told_to = STDERR_FILENO;
constexpr int NUMBER_OF_COPY = 250;

bool has(const bound &b) { return !b.text.empty(); }

// Runs in a handler too, so it writes itself.
void tell_bound(const CHR *what, const bound &b, const CHR *unit)
{
    CHR line[160];
    const int size = snprintf(line, sizeof line, "kst run: the program %s more than %.*s%s\n", what,
                              int(std::min<ULO>(b.text.size(), 40)), b.text.data(), unit);
    (void)!write(told_to, line, static_cast<ULO>(size));
}

void tell_end_of_time() { tell_bound("took", held.time, " s"); }

bool recursion_was_too_deep()
{
    return is_stack_bound && rt_ctrl != nullptr &&
           rt_ctrl->rt_recursion == recursion::HAS_ENDED_RUN;
}

// One line: the first limit that was met, and not what else it may have led to.
bool tell()
{
    if (ticks_over > 0)
        tell_end_of_time();
    else if (is_memory_over || recursion_was_too_deep())
        tell_bound("took", held.memory, " bytes of memory");
    else if (is_output_over)
        tell_bound("wrote", held.output, " bytes to a file");
    else {
        std::string refusals = refused_calls();
        if (held.no_environment && the_engine.environment_asked)
            refusals.append(refusals.empty() ? "" : ", ").append("the environment");
        if (refusals.empty()) return false;
        dprintf(told_to, "kst run: the program was refused: %s\n", refusals.c_str());
    }
    return true;
}

bool set_limit(__rlimit_resource which, ULO most)
{
    rlimit limit = {};
    getrlimit(which, &limit);
    limit.rlim_cur = std::min<rlim_t>(most, limit.rlim_max);
    if (which != RLIMIT_FSIZE) limit.rlim_max = limit.rlim_cur;
    return setrlimit(which, &limit) == 0;
}

// A handler's signal comes at the end of the time and at each tick from then on.
void set_timer(double seconds)
{
    const auto whole = static_cast<time_t>(seconds);
    const auto rest = static_cast<suseconds_t>((seconds - static_cast<double>(whole)) * 1e6);
    const itimerval time = {{0, TICK}, {whole, rest}};
    setitimer(ITIMER_REAL, &time, nullptr);
}

void tell_at_end()
{
    fflush(stdout); // may wait for a reader until the time is over
    set_timer(0);
    set_limit(RLIMIT_FSIZE, RLIM_INFINITY); // what is told may go to a file as well
    if (tell()) _exit(STATUS_FAULT);
}

// -- Time --------------------------------------------------------------------------------------

[[noreturn]] void end_at_once()
{
    RAW_TTY_MODE(false);
    tell_end_of_time();
    _exit(STATUS_FAULT);
}

// MAPCAR takes an error for its answer, so it is raised again and again.
void on_time(int)
{
    if (!is_running || ticks_over >= PATIENCE) end_at_once();
    ticks_over = ticks_over + 1;
    rt_ctrl->rt_error_code = 0;
    rt_ctrl->rt_noterror = 0;
}

void handle(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler; // a wait for input ends too
    sigaction(number, &action, nullptr);
}

// -- Memory and output -------------------------------------------------------------------------

// Bytes of address space that the process has; 0 if that can't be read.
ULO used_memory()
{
    unsigned long pages = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    if (file == nullptr) return 0;
    if (fscanf(file, "%lu", &pages) != 1) pages = 0;
    fclose(file);
    return pages * static_cast<ULO>(sysconf(_SC_PAGESIZE));
}

// The stack of calls is a mapping that is there already: a quarter of the memory is the program's.
bool bound_memory(ULO bytes)
{
    const ULO used = used_memory(), for_calls = bytes / 4;
    is_stack_bound = stack_floor != nullptr && ULO(stack_pointer() - stack_floor) > for_calls;
    if (is_stack_bound) stack_floor = stack_pointer() - for_calls;
    the_engine.reserves = 0;
    return used != 0 && set_limit(RLIMIT_AS, used + bytes);
}

void end_without_memory(const CHR *text)
{
    if (!has(held.memory) || strstr(text, "memory") == nullptr) return;
    is_memory_over = 1;
    exit(STATUS_FAULT);
}

void close_descriptors()
{
    constexpr unsigned FIRST = STDERR_FILENO + 1, ENOUGH = 65536;
    if (close_range(FIRST, ~0U, 0) == 0) return;
    for (unsigned file = FIRST; file < ENOUGH; file++) close(static_cast<int>(file));
}

} // namespace

bool limits::any() const
{
    return has(time) || has(memory) || has(output) || no_files || no_environment;
}

bool read_limits(std::string_view text, limits *into, std::string *why)
{
    for (std::string_view rest = text;;) {
        const auto end = std::min(rest.find(','), rest.size());
        const std::string_view one = rest.substr(0, end);
        if (!read_one(one, into)) {
            *why = "no such limit: `" + std::string(one) + "'";
            return false;
        }
        if (end == rest.size()) return true;
        rest.remove_prefix(end + 1);
    }
}

std::vector<std::string_view> limit_names()
{
    std::vector<std::string_view> names;
    for (const bound_row &row : rows) names.push_back(row.name);
    return names;
}

void begin_limits(const limits &wanted)
{
    held = wanted;
    atexit(tell_at_end);
    if (held.no_environment) {
        // What the system shows of the process goes too.
        for (CHR **one = environ; *one != nullptr; one++) memset(*one, 0, strlen(*one));
        clearenv();
    }
    terminal.wants_tty = !held.no_files;
    before_fatal = end_without_memory;
    if (!has(held.time)) return;
    the_engine.interruptible = 1;
    handle(SIGALRM, on_time);
    set_timer(held.time.number);
}

// What stands in the files of the standard output and error already is not the program's.
ULO bytes_written_before()
{
    ULO most = 0;
    for (const int file : {STDOUT_FILENO, STDERR_FILENO}) {
        struct stat about;
        const bool is_file = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
        if (is_file) most = std::max(most, static_cast<ULO>(about.st_size));
    }
    return most;
}

bool close_limits(std::string *why)
{
    if (!held.any()) return true;
    tzset(); // from a file
    if (has(held.output)) handle(SIGXFSZ, [](int) { is_output_over = 1; });
    if (held.no_files) close_descriptors();
    told_to = std::max(STDERR_FILENO, fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, NUMBER_OF_COPY));
    *why = "the system has no such limits";
    if (!set_limit(RLIMIT_CORE, 0) || !set_limit(RLIMIT_NPROC, 0)) return false;
    if (has(held.time) && !set_limit(RLIMIT_CPU, static_cast<ULO>(held.time.number) + 2))
        return false;
    const ULO most_output = static_cast<ULO>(held.output.number) + bytes_written_before();
    if (has(held.output) && !set_limit(RLIMIT_FSIZE, most_output)) return false;
    if (has(held.memory) && !bound_memory(static_cast<ULO>(held.memory.number))) return false;
    return !held.no_files || install_call_filter(why);
}

void begin_limited_run() { is_running = 1; }

bool has_limit_ended_run() { return ticks_over > 0 || recursion_was_too_deep(); }
