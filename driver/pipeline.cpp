// _Main_: the road of a program from its file to its printed value, as the list of its stages.

#include <cstdlib>

#include "driver/code.h"
#include "driver/integrity.h"
#include "driver/options.h"
#include "driver/precompiled.h"
#include "driver/prepare.h"
#include "driver/profile.h"
#include "driver/run.h"
#include "driver/session.h"
#include "driver/source.h"
#include "driver/start.h"
#include "driver/timing.h"
#include "frontend/reader.h"
#include "frontend/self_check.h"
#include "kestrin/unit.h"
#include "strings/fatal.h"
#include "vm/engine.h"
#include "vm/stack.h"

FATAL_SITE(USAGE_PRECOMPILED, "kestrin", "main", 102)
FATAL_SITE(USAGE_SOURCE, "kestrin", "main", 103)

namespace {

session the_session = {};

raw_file read_program_file(const session *s)
{
    tell(s, message::CHECKING_PRECOMPILED, s->file());
    return read_raw(s->file());
}

// What can't be read is a source, whose stage reports it: the file is never read again.
bool is_stored_program(const raw_file &file)
{
    return file.failed_call == nullptr && is_precompiled(file.contents);
}

// The road of a precompiled program, from its file to linked code.
void prepare_precompiled(session *s, std::string_view contents)
{
    load_precompiled(s, contents);
    enter_instructions(&the_engine.func_lut); // no syntax check has seen them
    reset_time(s, site::USAGE_PRECOMPILED);
    link_precompiled(s);
}

// The road of a source file, from reading to linked code.
void prepare_source(session *s, raw_file *file)
{
    load_profile(s);
    list_global_functions(s);
    read_source(s, file);
    reset_time(s, site::USAGE_SOURCE);
    tell_wrapping(s);
    remember_functions(s);
    const ULO arguments = check_source(s);
    bind_surroundings(s, arguments);
    squeeze_program(s);
    check_integrity(s);
    prove_types(s);
    if (s->is_storing()) write_precompiled(s);
    compile_global_functions(s);
    compile_program(s);
    link_all(s);
}

void run_session()
{
    session *s = &the_session;
    start_engine(s);
    scan_options(s);
    start_language(s);
    raw_file file = read_program_file(s);
    if (is_stored_program(file))
        prepare_precompiled(s, file.contents);
    else
        prepare_source(s, &file);
    report_preparation(s);
    run_program(s);
    report_run(s);
    exit(0);
}

} // namespace

int _Main_(int argc, char **argv)
{
    fill_standard_descriptors();
    guard_against_reentry();
    the_session.argc = argc;
    the_session.argv = argv;
    run_on_large_stack(run_session);
}
