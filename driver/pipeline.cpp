// _Main_: the road of a program from its file to its printed value, as the list of its stages.

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>

#include "bytecode/compile.h"
#include "bytecode/link.h"
#include "driver/options.h"
#include "driver/prepare.h"
#include "driver/session.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "kestrin/unit.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "terminal/terminal.h"
#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/machine.h"
#include "vm/stack.h"

namespace {

session the_session = {};
std::mutex singleton; // taken once and never released

// -- Start -------------------------------------------------------------------------------------

void guard_against_reentry()
{
    if (!singleton.try_lock())
        fatal(fatal_site::MAIN_REENTRY, "VM engine is already started (singleton re-entry).");
}

void start_engine(session *s)
{
    std::set_new_handler([] { fatal(fatal_site::MEMORY_NEW); });
    setup_quarne_thread_safe_functionality_for_local_thread();
    engine_open = 0;
    bind_isaext();
    saved_argv = s->argv;
    read_environment(s);
    the_engine.mapcar_with_decompiler = s->switches[SWITCH_DECOMPILER];
    the_engine.compile_with_debuginfo = s->switches[SWITCH_DEBUGINFO];
}

void start_language()
{
    build_groups();
    term_init(nullptr);
    equ(&rt_ctrl->rt_run_text, nullptr);
    equ(&rt_ctrl->rt_error_text, nullptr);
}

// -- Preparation -------------------------------------------------------------------------------

void read_source(session *s)
{
    read_from_file(&s->prog_text, s->file());
    if (!notempty(s->prog_text)) die(message::NO_CODE);
}

// Checks the program and returns the number of formal arguments that it needs, which is how many words
// there are on the command line.
ULO check_source(session *s)
{
    const SLO wanted = kestrin_check(&s->prog_text, "Main", &the_engine.func_lut);
    if (wanted < 0) die_of_syntax_error();
    if (ULO(wanted) != s->words_behind_file())
        die(message::ARGUMENTS_DIFFER, s->prog_text, ULO(wanted), wanted == 1 ? "" : "s");
    return ULO(wanted);
}

void bind_surroundings(session *s, ULO arguments)
{
    bind_terminal(s);
    if (arguments > 0) bind_arguments(s);
    if (!is_one_form(view(s->prog_text))) wrap_program(s);
}

void squeeze_program(session *s)
{
    progn_squeeze(&s->prog_text);
    if (!is_executable_form(view(s->prog_text))) wrap_program(s);
}

// The types of the global functions are where the program's begin.
void prove_types(session *s)
{
    equ(&s->prog_text_untyped, s->prog_text);
    scratch types;
    equ(&types.s, the_engine.global_udf_types);
    kestrin_justify(&s->prog_text, &types.s);
}

// -- Code --------------------------------------------------------------------------------------

// The global function set always exists as code, be it empty.
void compile_global_functions(const session *s)
{
    std::string text(view(the_engine.global_udf_code));
    assign(&the_engine.global_udf_code, wrapped(text.append(" NIL")));
    kestrin_compile(&the_engine.global_udf_code, s->switches[SWITCH_DEBUGINFO], "UDFs_CFG");
}

void compile_program(session *s)
{
    kestrin_compile(&s->prog_text, s->switches[SWITCH_DEBUGINFO], nullptr);
}

// The set first: the program's code refers to it.
void link_all(session *s)
{
    kestrin_link(the_engine.global_udf_code);
    kestrin_link(s->prog_text);
}

// -- Run ---------------------------------------------------------------------------------------

void print_text(CHR **text)
{
    scratch nul, shown;
    assign(&nul.s, std::string_view("", 1));
    assign(&shown.s, "\\0");
    strtran(text, *text, nul.s, shown.s);
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
    fflush(stdout);
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

void run_session()
{
    session *s = &the_session;
    start_engine(s);
    scan_options(s);
    start_language();

    read_source(s);
    wrap_program(s);
    const ULO arguments = check_source(s);
    bind_surroundings(s, arguments);
    squeeze_program(s);
    prove_types(s);

    compile_global_functions(s);
    compile_program(s);
    link_all(s);
    run_program(s);
    exit(0);
}

} // namespace

int _Main_(int argc, char **argv)
{
    guard_against_reentry();
    the_session.argc = argc;
    the_session.argv = argv;
    run_on_large_stack(run_session);
}
