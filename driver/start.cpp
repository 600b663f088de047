#include "driver/start.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <sys/resource.h>
#include <unistd.h>

#include "driver/options.h"
#include "frontend/isa.h"
#include "kestrin/strings.h"
#include "kestrin/unit.h"
#include "native/hot.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "terminal/terminal.h"
#include "vm/engine.h"
#include "vm/machine.h"

FATAL_SITE(MAIN_REENTRY, "kestrin", "main", 101)

namespace {

std::mutex singleton; // taken once and never released

// Switches that are told as notes, not in the list.
void tell_switch_note(const session *s, message_of<const CHR *, const CHR *, int> note,
                      print_switch which, const CHR *on, const CHR *off)
{
    say(note, s->is_on(which) ? on : off, switch_rows[which].variable, int(s->switches[which]));
}

void tell_settings(const session *s)
{
    if (!s->verbose) return;
    print_warnings(view(terminal.init_status));
    if (terminal.warning) {
        fflush(stdout);
        sleep(1); // for the user to read it
    }
    say(message::SWITCHERS);
    for (int i = 0; i < SWITCH_DECOMPILER; i++)
        say(message::SWITCHER, switch_rows[i].variable, int(s->switches[i]));
    tell_switch_note(s, message::MAPCAR_DECOMPILER, SWITCH_DECOMPILER, "uses", "DOES NOT use");
    tell_switch_note(s, message::COMPILER_DEBUGINFO, SWITCH_DEBUGINFO, "generates",
                     "DOES NOT generate");
}

bool is_memory_limited()
{
    rlimit limit = {};
    return getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY ||
           getrlimit(RLIMIT_DATA, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

} // namespace

void fill_standard_descriptors()
{
    for (int number = 0; number <= 2; number++)
        if (fcntl(number, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
}

void guard_against_reentry()
{
    if (!singleton.try_lock())
        fatal(site::MAIN_REENTRY, "VM engine is already started (singleton re-entry).");
}

void start_engine(session *s)
{
    report_failing_new();
    setup_quarne_thread_safe_functionality_for_local_thread();
    engine_open = 0;
    bind_isaext();
    saved_argv = s->argv;
    read_environment(s);
    the_engine.mapcar_with_decompiler = s->switches[SWITCH_DECOMPILER];
    the_engine.compile_with_debuginfo = s->switches[SWITCH_DEBUGINFO];
    the_engine.moves = getenv("KESTRIN_DEBUG_NO_MOVES") == nullptr;
    the_engine.small_arrays = the_engine.moves && !has_foreign_instructions();
    the_engine.reserves = the_engine.small_arrays && !is_memory_limited();
    the_engine.native = choose_native_maker();
    *rt_ctrl->counters = fresh_counters();
}

void start_language(session *s)
{
    term_init(nullptr);
    tell_settings(s);
    equ(&rt_ctrl->rt_run_text, nullptr);
    equ(&rt_ctrl->rt_error_text, nullptr);
}
