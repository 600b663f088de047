#include "driver/source.h"

#include <string>
#include <utility>

#include "driver/listing.h"
#include "driver/prepare.h"
#include "driver/profile.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "frontend/uninit.h"
#include "strings/tokens.h"
#include "vm/engine.h"

namespace {

void list_program(const session *s)
{
    list_if(s->is_on(SWITCH_MODIFIED_SRC), s, message::PROGRAM_PRINT_DISABLED,
            [s] { kestrin_print(s->program.written(), style_of(*s)); });
}

} // namespace

void list_global_functions(const session *s)
{
    if (s->definitions.empty()) return;
    list_if(s->is_on(SWITCH_CFG_UDF) && s->is_on(SWITCH_MODIFIED_SRC), s,
            message::SET_PRINT_DISABLED, [s] { kestrin_print(set_text(s), style_of(*s)); });
}

std::string read_source(session *s, raw_file *file)
{
    tell(s, message::READING_SOURCE, s->file());
    std::string source = read_from_raw(s->file(), *file, &s->program.file);
    file->contents = std::string();
    if (left_trimmed(source).empty()) die(message::NO_CODE);
    return source;
}

ULO check_source(session *s, std::string source)
{
    tell(s, message::CHECKING_SOURCE);
    tree *t = &s->program;
    const SLO wrapper = -static_cast<SLO>(mnemonic(ISA_PROGN).size() + 2);
    const SLO wanted = kestrin_check(t, &t->root, wrapped(std::move(source)), wrapper, "Main",
                                     &the_engine.func_lut);
    if (wanted < 0) die_of_syntax_error();
    const ULO given = s->words_behind_file();
    const CHR *ending = wanted == 1 ? "" : "s";
    if (ULO(wanted) == given) return given;
    if (s->is_packed) die(message::WORDS_DIFFER, s->file(), ULO(wanted), ending, given);
    die(message::ARGUMENTS_DIFFER, t->written().c_str(), ULO(wanted), ending);
}

void bind_surroundings(session *s, ULO arguments)
{
    bind_terminal(s);
    if (arguments > 0) s->is_packed ? bind_exact_words(s) : bind_arguments(s);
    if (!is_one_form(s->program)) wrap_program(s);
}

void squeeze_program(session *s)
{
    tell(s, message::SQUEEZING, isa_mnemonics[ISA_PROGN]);
    const ULO removed = progn_squeeze(&s->program);
    tell(s, message::SQUEEZED, isa_mnemonics[ISA_PROGN], removed);
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
