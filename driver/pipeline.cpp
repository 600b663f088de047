// _Main_: the road of a program from its file to its printed value, as the list of its stages.

#include <cstdlib>

#include "driver/code.h"
#include "driver/integrity.h"
#include "driver/options.h"
#include "driver/packed.h"
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

// The road of a source behind its profile, from its bytes to linked code.
void prepare_source(session *s, raw_file *file)
{
    list_global_functions(s);
    std::string source = read_source(s, file);
    reset_time(s, site::USAGE_SOURCE);
    tell_wrapping(s);
    remember_functions();
    const ULO arguments = check_source(s, std::move(source));
    bind_surroundings(s, arguments);
    squeeze_program(s);
    check_integrity(s);
    prove_types(s);
    if (s->is_storing()) write_precompiled(s);
    compile_global_functions(s);
    compile_program(s);
    link_all(s);
}

// The program's file is the executable, and there are no options.
void prepare_packed(session *s)
{
    s->is_packed = true;
    start_language(s);
    packed_program packed;
    if (!unpack(s->file(), &packed)) die(message::PACKED_DAMAGED, s->file());
    if (is_precompiled(packed.program)) return prepare_precompiled(s, packed.program);
    raw_file profile = {std::move(packed.profile)}, program = {std::move(packed.program)};
    take_profile(s, read_from_raw(s->file(), profile, &s->set.file));
    prepare_source(s, &program);
}

void prepare_file(session *s)
{
    scan_options(s);
    start_language(s);
    raw_file file = read_program_file(s);
    if (is_stored_program(file)) return prepare_precompiled(s, file.contents);
    load_profile(s);
    prepare_source(s, &file);
}

void run_session()
{
    session *s = &the_session;
    start_engine(s);
    if (is_packed())
        prepare_packed(s);
    else
        prepare_file(s);
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
