// Runtime errors: the set and rise family, and the text that names function, offset and variable.

#include "vm/errors.h"

#include <string>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/debug_text.h"
#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/image.h"
#include "vm/machine.h"
#include "vm/trail.h"

namespace {

struct text_row {
    UCH code;
    const CHR *text;
};

constexpr text_row text_rows[] = {
    {0, ""},
#define RT_TEXT(id, code, text) {ECODE_RT__##code, text},
#include "vm/errors.def"
#undef RT_TEXT
};

constexpr UCH LAST_FREE_CODE = 248;

// Debug text of an image in linked form; empty if it was compiled without.
std::string_view debug_text(const ULO *image)
{
    const ULO *table = image + image::UDF_TABLE, *text = table + image_udfs(image);
    const ULO *next = image_udfs(image) > 0 ? node_at(table) : image_main_node(image);
    if (text == next) return {};
    return reinterpret_cast<const CHR *>(text);
}

// The root's debug text has three lists of used names in front.
std::string_view drop_lists(std::string_view text)
{
    for (int i = 0; i < 3 && text.starts_with('('); i++) take_until(&text, ')');
    return text;
}

// In the program or in the global functions, which are counted strings.
ULO code_offset(const ULO *dat_ptr)
{
    const ULO place = reinterpret_cast<ULO>(dat_ptr);
    const CHR *const program = reinterpret_cast<const CHR *>(rt_ctrl->rt_program);
    const CHR *const global = the_engine.global_udf_code;
    for (const CHR *code : {program, global}) {
        const ULO start = reinterpret_cast<ULO>(code);
        if (place >= start && place < start + len(code)) return place - start;
    }
    return 0;
}

std::string variable_name(ULO variable, std::string_view names)
{
    const ULO arguments = image_arguments(rt_ctrl->rt_function);
    if (variable <= arguments) return "$" + std::to_string(variable);
    std::string_view name;
    for (ULO i = arguments; i < variable; i++) name = take_word(&names);
    return name.empty() ? std::to_string(variable) : std::string(name);
}

std::string place_of(const ULO *dat_ptr, ULO variable)
{
    std::string place;
    std::string_view names;
    if (rt_ctrl->rt_function != nullptr) names = debug_text(rt_ctrl->rt_function);
    if (!names.empty()) {
        if (rt_ctrl->rt_function == rt_ctrl->rt_program) names = drop_lists(names);
        place.append("Fnc=").append(take_word(&names)).append("; ");
    }
    place.append("Dbg=").append(std::to_string(code_offset(dat_ptr)));
    if (variable != 0 && rt_ctrl->rt_function != nullptr)
        place.append("; Var=").append(variable_name(variable, names));
    return place;
}

void raise(const ULO *dat_ptr = nullptr)
{
    rt_ctrl->rt_noterror = 0;
    note_error(rt_ctrl, dat_ptr);
}

void default_text()
{
    if (!notempty(rt_ctrl->rt_error_text)) assign(&rt_ctrl->rt_error_text, "Unknown error!");
}

// The last step of the published forms: gives the text of the error that has been set, or raises
// it. `place` is NULL where the text is not to say it.
void give(CHR **targ_errtext, const ULO *place)
{
    if (place != nullptr) add_error_place(place);
    equ(targ_errtext, rt_ctrl->rt_error_text);
}
void rise(const ULO *place)
{
    if (place != nullptr) add_error_place(place);
    raise(place);
}

} // namespace

void kst_errfmt_helper(CHR **text, const CHR *message, const ULO *dat_ptr, ULO variable)
{
    std::string full(view(message));
    full.append(" (").append(place_of(dat_ptr, variable)).append(")");
    assign(text, full);
}

void set_error_state(SLO code, const CHR *text, std::string_view caller)
{
    if (code >= 0 && code <= LAST_FREE_CODE) {
        rt_ctrl->rt_error_code = static_cast<UCH>(code);
        equ(&rt_ctrl->rt_error_text, text);
        return;
    }
    rt_ctrl->rt_error_code = 0;
    assign(&rt_ctrl->rt_error_text,
           std::string(caller).append(": Failed to assign reserved error code!"));
}

void add_error_place(const ULO *dat_ptr)
{
    kst_errfmt_helper(&rt_ctrl->rt_error_text, rt_ctrl->rt_error_text, dat_ptr, 0);
}

void raise_error(rt_text text, const ULO *dat_ptr, ULO variable, std::string_view detail)
{
    const text_row &row = text_rows[static_cast<UCH>(text)];
    raise(dat_ptr);
    rt_ctrl->rt_error_code = row.code;
    scratch message;
    assign(&message.s, std::string(row.text).append(detail));
    kst_errfmt_helper(&rt_ctrl->rt_error_text, message.s, dat_ptr, variable);
}

void raise_deep_recursion(const ULO *dat_ptr)
{
    raise(dat_ptr);
    rt_ctrl->rt_error_code = 0;
    assign(&rt_ctrl->rt_error_text, "The recursion is too deep.");
}

void raise_unset_variable(const ULO *node)
{
    raise_error(rt_text::VARIABLE_GETVAL, node, node[1] + 1);
}

UCH noterror() { return rt_ctrl->rt_noterror; }

void set_error(CHR **targ_errtext) { set_error_dbg(targ_errtext, nullptr); }

void rise_error() { rise_error_dbg(nullptr); }

void set_error_dbg(CHR **targ_errtext, const ULO *dat_ptr)
{
    default_text();
    give(targ_errtext, dat_ptr);
}

void rise_error_dbg(const ULO *dat_ptr)
{
    default_text();
    rise(dat_ptr);
}

void set_error_info(UCH errcode, CHR **targ_errtext, const CHR *src_errtext)
{
    set_error_state(errcode, src_errtext, "set_error_info");
    give(targ_errtext, nullptr);
}

void rise_error_info(UCH errcode, const CHR *src_errtext)
{
    set_error_state(errcode, src_errtext, "rise_error_info");
    rise(nullptr);
}

void set_error_info_dbg(UCH errcode, CHR **targ_errtext, const CHR *src_errtext, const ULO *dat_ptr)
{
    set_error_state(errcode, src_errtext, "set_error_info_dbg");
    give(targ_errtext, dat_ptr);
}

void rise_error_info_dbg(UCH errcode, const CHR *src_errtext, const ULO *dat_ptr)
{
    set_error_state(errcode, src_errtext, "rise_error_info_dbg");
    rise(dat_ptr);
}

UCH get_error_code() { return rt_ctrl->rt_error_code; }

CHR *get_error_text(CHR **targ_errtext) { return equ(targ_errtext, rt_ctrl->rt_error_text); }
