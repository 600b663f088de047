// _Main_: the road of a program from its file to its printed value, as the list of its stages.

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <utility>

#include "bytecode/compile.h"
#include "bytecode/link.h"
#include "driver/integrity.h"
#include "driver/listing.h"
#include "driver/options.h"
#include "driver/precompiled.h"
#include "driver/prepare.h"
#include "driver/profile.h"
#include "driver/session.h"
#include "driver/timing.h"
#include "driver/usage.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "frontend/uninit.h"
#include "kestrin/strings.h"
#include "kestrin/unit.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "terminal/terminal.h"
#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/machine.h"
#include "vm/stack.h"
#include "vm/text.h"

FATAL_SITE(MAIN_REENTRY, "kestrin", "main", 101)
FATAL_SITE(USAGE_PRECOMPILED, "kestrin", "main", 102)
FATAL_SITE(USAGE_SOURCE, "kestrin", "main", 103)
FATAL_SITE(USAGE_PREPARED, "kestrin", "main", 104)
FATAL_SITE(USAGE_RUN, "kestrin", "main", 105)
FATAL_SITE(USAGE_DONE, "kestrin", "main", 106)

namespace {

session the_session = {};
time_point start;     // of what the next time report is about
std::mutex singleton; // taken once and never released

// -- Start -------------------------------------------------------------------------------------

// A file gets the lowest number that is free: without these, what a program opens first would get
// its output.
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
    // Instructions of an extension unit may walk all places of an array.
    the_engine.moves = getenv("KESTRIN_DEBUG_NO_MOVES") == nullptr;
    the_engine.small_arrays = the_engine.moves && isaext_count == 0;
}

// Switches that are told as notes, not in the list.
void tell_switch_note(const session *s, message_of<const CHR *, const CHR *, int> note,
                      print_switch which, const CHR *on, const CHR *off)
{
    say(note, s->is_on(which) ? on : off, switch_variable(which), int(s->switches[which]));
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
        say(message::SWITCHER, switch_variable(print_switch(i)), int(s->switches[i]));
    tell_switch_note(s, message::MAPCAR_DECOMPILER, SWITCH_DECOMPILER, "uses", "DOES NOT use");
    tell_switch_note(s, message::COMPILER_DEBUGINFO, SWITCH_DEBUGINFO, "generates",
                     "DOES NOT generate");
}

void start_language(session *s)
{
    build_groups();
    term_init(nullptr);
    tell_settings(s);
    equ(&rt_ctrl->rt_run_text, nullptr);
    equ(&rt_ctrl->rt_error_text, nullptr);
}

// -- Preparation -------------------------------------------------------------------------------

// Lists a text in a talking run if the switches allow it, else says that it is disabled.
template <class Text>
void list_text(const session *s, Text text, bool allowed, message_of<> disabled)
{
    if (!s->verbose) return;
    if (allowed)
        kestrin_print(text(), style_of(*s));
    else
        say(disabled);
}

void list_global_functions(const session *s)
{
    if (s->definitions.empty()) return;
    list_text(
        s, [s] { return set_text(s); }, s->is_on(SWITCH_CFG_UDF) && s->is_on(SWITCH_MODIFIED_SRC),
        message::SET_PRINT_DISABLED);
}

void list_program(const session *s)
{
    list_text(
        s, [s] { return s->program.written(); }, s->is_on(SWITCH_MODIFIED_SRC),
        message::PROGRAM_PRINT_DISABLED);
}

// The bytes of the file go when its lines are joined.
void read_source(session *s, raw_file *file)
{
    tell(s, message::READING_SOURCE, s->file());
    s->source = read_from_raw(s->file(), *file, &s->program.file);
    file->contents = std::string();
    if (left_trimmed(s->source).empty()) die(message::NO_CODE);
}

void reset_time(session *s, const fatal_site &site)
{
    if (!s->verbose) return;
    say(message::RESETTING_FIRST);
    start = take_time(site);
}

// Checks the program and returns the number of formal arguments that it needs, which is how many
// words there are on the command line.
ULO check_source(session *s)
{
    tell(s, message::CHECKING_SOURCE);
    tree *t = &s->program;
    const SLO wrapper = -static_cast<SLO>(mnemonic(ISA_PROGN).size() + 2);
    const SLO wanted = kestrin_check(t, &t->root, wrapped(std::move(s->source)), wrapper, "Main",
                                     &the_engine.func_lut);
    if (wanted < 0) die_of_syntax_error();
    if (ULO(wanted) != s->words_behind_file())
        die(message::ARGUMENTS_DIFFER, t->written().c_str(), ULO(wanted), wanted == 1 ? "" : "s");
    return ULO(wanted);
}

void bind_surroundings(session *s, ULO arguments)
{
    bind_terminal(s);
    if (arguments > 0) bind_arguments(s);
    if (!is_one_form(s->program)) wrap_program(s);
}

void squeeze_program(session *s)
{
    const std::string progn(mnemonic(ISA_PROGN));
    tell(s, message::SQUEEZING, progn.c_str());
    const ULO removed = progn_squeeze(&s->program);
    tell(s, message::SQUEEZED, progn.c_str(), removed);
    if (s->verbose) {
        say(message::LOOKING_FOR_UNSET);
        print_warnings(kst_uninit_check("Main", s->program));
    }
    if (!is_executable_form(s->program)) wrap_program(s);
}

// The types of the global functions are where the program's begin.
void prove_types(session *s)
{
    list_program(s);
    tell(s, message::RESOLVING);
    if (s->is_storing()) s->stored_program = s->program.written();
    kestrin_justify(&s->program, the_engine.global_udf_types, nullptr);
    list_program(s);
}

// -- Code --------------------------------------------------------------------------------------

void list_code(const session *s, const CHR *code, bool allowed, message_of<> disabled)
{
    if (!s->verbose) return;
    if (allowed)
        kestrin_printcode(code, style_of(*s));
    else
        say(disabled);
}

void tell_size(const session *s, message_of<ULO, const CHR *> which, const CHR *code)
{
    tell(s, which, len(code), len(code) == 1 ? "" : "s");
}

// The global function set always exists as code, be it empty.
void compile_global_functions(session *s)
{
    tell(s, message::COMPILING_SET);
    close_set(s);
    kestrin_compile(&s->set, s->switches[SWITCH_DEBUGINFO], "UDFs_CFG",
                    &the_engine.global_udf_code);
    tell_size(s, message::SET_SIZE, the_engine.global_udf_code);
    list_code(s, the_engine.global_udf_code, s->is_on(SWITCH_CFG_UDF) && s->is_on(SWITCH_COMPILED),
              message::SET_COMPILED_DISABLED);
    if (s->mode != DISK_SHOW_DEBUG_INFO) return;
    say(message::DECOMPILING_SET);
    if (!list_decompiled(s, the_engine.global_udf_code, ENTIRE, code_origin::OWN))
        die(message::SET_NOT_DECOMPILED);
}

void compile_program(session *s)
{
    tell(s, message::COMPILING);
    kestrin_compile(&s->program, s->switches[SWITCH_DEBUGINFO], nullptr, &s->prog_text);
    tell_size(s, message::PROGRAM_SIZE, s->prog_text);
    list_code(s, s->prog_text, s->is_on(SWITCH_COMPILED), message::COMPILED_DISABLED);
    if (s->mode != DISK_SHOW_DEBUG_INFO) return;
    say(message::DECOMPILING);
    if (!list_decompiled(s, s->prog_text, ENTIRE, code_origin::OWN)) die(message::NOT_DECOMPILED);
}

// The set first: the program's code refers to it.
void link_all(session *s)
{
    tell(s, message::LINKING_SET);
    kestrin_link(the_engine.global_udf_code);
    list_code(s, the_engine.global_udf_code, s->is_on(SWITCH_CFG_UDF) && s->is_on(SWITCH_LINKED),
              message::SET_LINKED_DISABLED);
    tell(s, message::LINKING);
    kestrin_link(s->prog_text);
    list_code(s, s->prog_text, s->is_on(SWITCH_LINKED), message::LINKED_DISABLED);
}

void report_preparation(const session *s)
{
    if (!s->verbose) return;
    say(message::RUN_FOLLOWS);
    const time_point now = take_time(site::USAGE_PREPARED);
    say(message::TIME_TO_PREPARE);
    print_time(start, now);
    say(message::RESETTING_SECOND);
    say(message::RULE);
    start = take_time(site::USAGE_RUN);
}

void report_run(const session *s)
{
    if (!s->verbose) return;
    const time_point now = take_time(site::USAGE_DONE);
    say(message::RULE);
    say(message::TIME_TO_RUN);
    print_time(start, now);
}

// -- Run ---------------------------------------------------------------------------------------

void print_text(CHR **text)
{
    show_nuls(text, *text);
    fwrite(*text, 1, len(*text), stdout);
}

void print_value(kestrin_data *value)
{
    switch (value->type) {
    case 'F': printf("%.16E", value->value.fval); break;
    case 'I': printf("%ld", value->value.ival); break;
    case 'S': print_text(&value->svalue); break;
    case 'Z': fputs("`NIL'", stdout); break;
    default: break;
    }
    putchar('\n');
}

[[noreturn]] void die_of_runtime_error()
{
    const rt_control *rt = rt_ctrl;
    die(message::RUNTIME_ERROR, unsigned(rt->rt_error_code),
        notempty(rt->rt_error_text) ? rt->rt_error_text : "Unknown error.");
}

void run_program(session *s)
{
    kestrin_data value = owning_slot;
    startup_callback();
    const bool done = kestrin_run(reinterpret_cast<const ULO *>(s->prog_text), &value, 0);
    if (done) print_value(&value);
    taskjob_end_callback(0);
    if (!done) die_of_runtime_error();
}

// -- Roads -------------------------------------------------------------------------------------

// The known functions of a program that no syntax check has seen.
void enter_instructions()
{
    scratch name;
    for (ULO i = 0; i < isa_count; i++)
        lut_add(&the_engine.func_lut, *isa_table[i].mnemonic, isa_table[i].operands);
    for (ULO i = 0; i < isaext_count; i++) {
        assign(&name.s, isaext_table[i].fnc_name);
        lut_add(&the_engine.func_lut, name.s, isaext_table[i].operands);
    }
}

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
    enter_instructions();
    reset_time(s, site::USAGE_PRECOMPILED);
    tell(s, message::LINKING_PRECOMPILED);
    kestrin_link(s->prog_text);
    list_code(s, s->prog_text, s->is_on(SWITCH_LINKED), message::LINKED_DISABLED);
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
