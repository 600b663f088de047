// MAPCAR: the whole compiler inside a running program. The operand, source text or compiled
// bytecode, is prepared, compiled, linked and run, and the answer is an array of what each stage
// produced. Nothing that goes wrong in the code escapes: the caller's state is as it was
// afterwards.

#include "mapcar/mapcar.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <sys/time.h>
#include <utility>

#include "bytecode/compile.h"
#include "bytecode/decompile.h"
#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/lut.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "kestrin/mapcar.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/image.h"
#include "vm/moves.h"

FATAL_SITE(MAPCAR_PLACES, "kestrin", "func__mapcar", 26)
FATAL_SITE(MAPCAR_PLACES_SHORT, "kestrin", "func__mapcar", 27)

namespace {

constexpr UCH REFUSED = 255; // syntax code of what MAPCAR itself refuses

// What an answer shows of the code besides the members that are always there.
enum shown : UCH { VALUES, CODE, TEXTS }; // each with all before it

// One call: what the stages make of the operand.
struct evaluation {
    const shown shows;
    scratch captured, processed, typed, compiled, linked, decompiled;
    kestrin_data value = owning_slot;
    explicit evaluation(shown what) : shows(what) {}
    ~evaluation() { release(&value); }
    evaluation(const evaluation &) = delete;
    evaluation &operator=(const evaluation &) = delete;
};

DFL clock_seconds()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<DFL>(now.tv_sec) + static_cast<DFL>(now.tv_usec) / 1e6;
}

void set_text(kestrin_data *d, std::string_view text)
{
    d->type = 'S';
    assign(&d->svalue, text);
}

void set_empty(kestrin_data *d)
{
    clear(d);
    set_text(d, {});
}

void refuse(std::string_view text)
{
    rt_ctrl->rt_run_flag = REFUSED;
    assign(&rt_ctrl->rt_run_text, text);
}

// The functions that texts of this thread know: those of the main thread and what they define.
struct function_view {
    lut *table = nullptr;
    function_view() = default;
    ~function_view() { lut_free_view(&table); }
    function_view(const function_view &) = delete;
    function_view &operator=(const function_view &) = delete;
};
lut *&known_functions() { return of_thread<function_view>().table; }

// -- The roads to linked code ------------------------------------------------------------------

// Names that only a text of this call has.
struct passing_names {
    name_id known = names().count();
    passing_names() = default;
    ~passing_names() { names().cut(known); }
    passing_names(const passing_names &) = delete;
    passing_names &operator=(const passing_names &) = delete;
};

// A tree that is used again and again, so that a short text costs no allocation.
tree &own_tree()
{
    tree &t = of_thread<tree>();
    if (t.nodes.capacity() > 1 << 16) t = tree(); // what a large text has left
    t.clear();
    return t;
}

// Checks and squeezes source text. False if it is refused.
bool prepare_source(const CHR *source, tree *t)
{
    std::string joined;
    join_lines(&joined, view(source), true);
    const SLO arguments = kestrin_check(t, &t->root, wrapped(std::move(joined)), 0, "Main_Mapcar",
                                        &known_functions());
    if (arguments > 0) refuse("Argument references are not allowed here.");
    if (arguments != 0) return false;
    progn_squeeze(t);
    if (!is_executable_form(*t)) wrap(t);
    return true;
}

bool compile_source(const CHR *source, evaluation *e)
{
    const passing_names own;
    tree &t = own_tree();
    if (!prepare_source(source, &t)) return false;
    if (e->shows == TEXTS) assign(&e->processed.s, t.written());
    kestrin_justify(&t, the_engine.global_udf_types, nullptr);
    if (e->shows == TEXTS) assign(&e->typed.s, t.written());
    kestrin_compile(&t, the_engine.compile_with_debuginfo, "Main_Mapcar", &e->compiled.s);
    return true;
}

bool take_bytecode(const CHR *code, evaluation *e)
{
    equ(&e->compiled.s, code);
    if (verify_bytecode(view(e->compiled.s))) return true;
    refuse("Compiled bytecode is corrupted or compiled for other ISA/ISAext COPs.");
    return false;
}

bool is_bytecode(const CHR *text) { return len(text) > 0 && (*text & 127) == 'U'; }

// -- The run -----------------------------------------------------------------------------------

// What a nested run would overwrite.
struct saved_run {
    const ULO *program = rt_ctrl->rt_program, *function = rt_ctrl->rt_function;
    CHR *captured = std::exchange(rt_ctrl->rt_captured, nullptr);
    lut *scope_table = std::exchange(known_functions(), nullptr);
    UCH capture = rt_ctrl->rt_capture;
    hot_counters *counters = rt_ctrl->counters;
    kestrin_data *frame = std::exchange(rt_ctrl->rt_frame, nullptr);

    void restore(CHR **output) const
    {
        rt_control *rt = rt_ctrl;
        rt->rt_program = program;
        rt->rt_function = function;
        free_string(output);
        *output = std::exchange(rt->rt_captured, captured);
        rt->rt_capture = capture;
        rt->counters = counters;
        rt->rt_frame = frame;
        lut_free_view(&known_functions()); // of a MAPCAR inside the run
        known_functions() = scope_table;
    }
};

void decompile(evaluation *e, code_origin origin)
{
    if (!the_engine.mapcar_with_decompiler || e->shows != TEXTS) return;
    const passing_names own;
    scratch messages;
    if (kestrin_decompile(view(e->compiled.s), ENTIRE, origin, &e->decompiled.s, &messages.s)) {
        progn_squeeze(&e->decompiled.s);
        return;
    }
    assign(&e->decompiled.s, std::string("(")
                                 .append(mnemonic(ISA_COMMENTS))
                                 .append(" \"Translation of the compiled bytecode has failed.\")"));
}

void link_and_run(evaluation *e, code_origin origin)
{
    if (e->shows >= CODE)
        equ(&e->linked.s, e->compiled.s);
    else
        std::swap(e->linked.s, e->compiled.s);
    kestrin_link(e->linked.s);
    const saved_run saved;
    hot_counters own = fresh_counters(); // code of an earlier call may have stood where this stands
    rt_ctrl->counters = &own;
    if (!kestrin_run(reinterpret_cast<const ULO *>(e->linked.s), &e->value, 1))
        set_empty(&e->value);
    forget_native(e->linked.s, len(e->linked.s));
    decompile(e, origin);
    saved.restore(&e->captured.s);
}

// UDFs that the code defines live as long as the call.
void evaluate(const CHR *operand, evaluation *e)
{
    lut *&functions = known_functions();
    if (functions == nullptr) functions = lut_make_view(the_engine.func_lut);
    const ULO known = functions->lut_count;
    functions->lut_scope++;
    const bool is_code = is_bytecode(operand);
    const bool ready = is_code ? take_bytecode(operand, e) : compile_source(operand, e);
    if (ready)
        link_and_run(e, is_code ? code_origin::VERIFIED : code_origin::OWN);
    else
        set_empty(&e->value);
    functions->lut_scope--;
    if (functions->lut_count != known) lut_prune(functions);
}

// -- The answer --------------------------------------------------------------------------------

// Makes the record the array of the answer, all members without a value.
kestrin_data *make_answer(kestrin_data *ret_dat, const fatal_site &site)
{
    auto *members = static_cast<kestrin_data *>(malloc(MAPCAR_MEMBERS * sizeof(kestrin_data)));
    if (members == nullptr) fatal(site);
    std::fill_n(members, MAPCAR_MEMBERS, fresh_variable);
    clear(ret_dat);
    ret_dat->disable_ptr = 1;
    ret_dat->single = 0;
    ret_dat->indices_numb = MAPCAR_MEMBERS;
    ret_dat->array.mix = members;
    return members;
}

void move_text(kestrin_data *member, scratch *text)
{
    member->type = 'S';
    std::swap(member->svalue, text->s);
    if (member->svalue == nullptr) equ(&member->svalue, nullptr);
}

// A failed run has a code and a text, whatever its code has left.
void settle_error()
{
    rt_control *rt = rt_ctrl;
    if (rt->rt_noterror) return;
    if (rt->rt_error_code == 0) rt->rt_error_code = 1;
    if (!notempty(rt->rt_error_text))
        assign(&rt->rt_error_text, "Unknown error returned from mapcar.");
}

void answer_all(kestrin_data *ret_dat, evaluation *e, DFL seconds)
{
    const rt_control *rt = rt_ctrl;
    kestrin_data *members = make_answer(ret_dat, site::MAPCAR_PLACES);
    move_text(ret_dat, &e->captured);
    members[MAPCAR_VALUE] = std::exchange(e->value, owning_slot);
    members[MAPCAR_VALUE].disable_ptr = 0;
    settle_error();
    answer<SLO>(&members[MAPCAR_SYNTAX_CODE], rt->rt_run_flag);
    set_text(&members[MAPCAR_SYNTAX_TEXT], view(rt->rt_run_text));
    answer<SLO>(&members[MAPCAR_ERROR_CODE], rt->rt_error_code);
    set_text(&members[MAPCAR_ERROR_TEXT], view(rt->rt_error_text));
    answer<DFL>(&members[MAPCAR_SECONDS], seconds);
    if (e->shows == VALUES) return;
    move_text(&members[MAPCAR_COMPILED], &e->compiled);
    move_text(&members[MAPCAR_LINKED], &e->linked);
    if (e->shows == CODE) return;
    move_text(&members[MAPCAR_PROCESSED], &e->processed);
    move_text(&members[MAPCAR_TYPED], &e->typed);
    move_text(&members[MAPCAR_DECOMPILED], &e->decompiled);
}

// The operand has failed: its error stays pending.
void answer_pending_error(kestrin_data *ret_dat)
{
    kestrin_data held = *ret_dat;
    *ret_dat = owning_slot;
    kestrin_data *members = make_answer(ret_dat, site::MAPCAR_PLACES_SHORT);
    set_text(ret_dat, {});
    copy_kst_data(&members[MAPCAR_VALUE], &held, 0);
    free_kst_data(&held);
    answer<SLO>(&members[MAPCAR_SYNTAX_CODE], 1);
    set_text(&members[MAPCAR_SYNTAX_TEXT], "Code was not compiled.");
    answer<SLO>(&members[MAPCAR_ERROR_CODE], 1);
    set_text(&members[MAPCAR_ERROR_TEXT], "Code was not executed.");
    for (ULO i = MAPCAR_PROCESSED; i <= MAPCAR_DECOMPILED; i++) set_text(&members[i], {});
    answer<DFL>(&members[MAPCAR_SECONDS], 0.0);
}

void run_mapcar(const ULO *dat_ptr, kestrin_data *ret_dat, shown shows)
{
    rt_control *rt = rt_ctrl;
    ret_dat->disable_ptr = 1;
    scratch operand;
    ret_sval(dat_ptr, &operand.s);
    if (!rt->rt_noterror) return answer_pending_error(ret_dat);

    const UCH error_code = std::exchange(rt->rt_error_code, UCH(0));
    CHR *error_text = std::exchange(rt->rt_error_text, nullptr);
    const DFL start = clock_seconds();
    evaluation e(shows);
    evaluate(operand.s, &e);
    answer_all(ret_dat, &e, clock_seconds() - start);

    rt->rt_noterror = 1;
    rt->rt_run_flag = 0;
    equ(&rt->rt_run_text, nullptr);
    rt->rt_error_code = error_code;
    free_string(&rt->rt_error_text);
    rt->rt_error_text = error_text;
    if (rt->rt_recursion == recursion::HAS_ENDED_RUN) raise_deep_recursion(dat_ptr);
}

} // namespace

void forget_functions_of_mapcar() { lut_free_view(&known_functions()); }

HANDLER(mapcar) { run_mapcar(dat_ptr, ret_dat, TEXTS); }
HANDLER(mapcar_without_texts) { run_mapcar(dat_ptr, ret_dat, CODE); }
HANDLER(mapcar_without_code) { run_mapcar(dat_ptr, ret_dat, VALUES); }
