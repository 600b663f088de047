#include "driver/code.h"

#include "bytecode/compile.h"
#include "bytecode/link.h"
#include "driver/listing.h"
#include "driver/precompiled.h"
#include "driver/profile.h"
#include "kestrin/strings.h"
#include "vm/engine.h"

namespace {

void list_code(const session *s, const CHR *code, bool allowed, message_of<> disabled)
{
    list_if(allowed, s, disabled, [=] { kestrin_printcode(code, style_of(*s)); });
}

void tell_size(const session *s, message_of<ULO, const CHR *> which, const CHR *code)
{
    tell(s, which, len(code), len(code) == 1 ? "" : "s");
}

void link_program(session *s)
{
    kestrin_link(s->prog_text);
    list_code(s, s->prog_text, s->is_on(SWITCH_LINKED), message::LINKED_DISABLED);
}

} // namespace

void compile_global_functions(session *s)
{
    tell(s, message::COMPILING_SET);
    close_set(s);
    kestrin_compile(&s->set, s->switches[SWITCH_DEBUGINFO], "UDFs_CFG", &the_engine.global_udf_code,
                    s->set_places);
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
    kestrin_compile(&s->program, s->switches[SWITCH_DEBUGINFO], nullptr, &s->prog_text,
                    s->program_places);
    tell_size(s, message::PROGRAM_SIZE, s->prog_text);
    list_code(s, s->prog_text, s->is_on(SWITCH_COMPILED), message::COMPILED_DISABLED);
    if (s->mode != DISK_SHOW_DEBUG_INFO) return;
    say(message::DECOMPILING);
    if (!list_decompiled(s, s->prog_text, ENTIRE, code_origin::OWN)) die(message::NOT_DECOMPILED);
}

void link_all(session *s)
{
    tell(s, message::LINKING_SET);
    kestrin_link(the_engine.global_udf_code);
    list_code(s, the_engine.global_udf_code, s->is_on(SWITCH_CFG_UDF) && s->is_on(SWITCH_LINKED),
              message::SET_LINKED_DISABLED);
    tell(s, message::LINKING);
    link_program(s);
}

void link_precompiled(session *s)
{
    tell(s, message::LINKING_PRECOMPILED);
    link_program(s);
}
