// Runs program texts inside the test's process: the road of the driver from checked text to a
// value, with the type pass or without it.
#pragma once

#include <cstdlib>
#include <string>

#include "bytecode/compile.h"
#include "bytecode/link.h"
#include "kestrin/isa.h"
#include "tests/kit/passes.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/places.h"

namespace kit {

// What a run did. Values show as their types and contents, arrays as those of all members that are
// set.
struct outcome {
    std::string output, value, error;
    UCH error_code;
};

inline std::string shown(const kestrin_data &d);

inline std::string shown_single(UCH type, SLO number, DFL fraction, const CHR *string)
{
    CHR print[40];
    snprintf(print, sizeof print, "%.16E", fraction);
    switch (type) {
    case 'I': return "I " + std::to_string(number);
    case 'F': return std::string("F ") + print;
    case 'S': return "S " + std::string(view(string));
    case 'Z': return "Z";
    default: return "";
    }
}

inline std::string shown_member(const kestrin_data &d, ULO i)
{
    if (d.arraytype == 0) return i < owned_places(&d) ? shown(d.array.mix[i]) : "";
    const UCH tag = d.aready_tags[i];
    if (tag == 0 || d.arraytype == 'Z') return tag == 0 ? "" : "Z";
    return shown_single(tag, d.arraytype == 'I' ? d.array.ival[i] : 0,
                        d.arraytype == 'F' ? d.array.fval[i] : 0,
                        d.arraytype == 'S' ? d.array.svalue[i] : nullptr);
}

inline std::string shown(const kestrin_data &d)
{
    std::string text = shown_single(d.type, d.value.ival, d.value.fval, d.svalue);
    if (d.single) return text;
    text = "[" + std::to_string(d.indices_numb) + "] " + text;
    for (ULO i = 1; i < d.indices_numb; i++)
        if (const std::string member = shown_member(d, i); !member.empty())
            text += ", " + std::to_string(i) + ": " + member;
    return "{" + text + "}";
}

// Links and runs compiled code, which must be sound.
inline outcome run_code(std::string_view compiled)
{
    scratch linked;
    assign(&linked.s, compiled);
    kestrin_link(linked.s);
    rt_ctrl->rt_noterror = 1;
    kestrin_data value = owning_slot;
    const bool done = kestrin_run(reinterpret_cast<const ULO *>(linked.s), &value, 1);
    outcome o = {std::string(view(rt_ctrl->rt_captured)), done ? shown(value) : "",
                 std::string(view(rt_ctrl->rt_error_text)), rt_ctrl->rt_error_code};
    free_kst_data(&value);
    forget_native(linked.s, len(linked.s));
    rt_ctrl->rt_noterror = 1;
    return o;
}

// `squeezed_text` must be one form that is no definition. Without debug text, errors name no
// places.
inline outcome run_text(const std::string &squeezed_text, bool with_types)
{
    const std::string text = with_types ? typed(squeezed_text).text : squeezed_text;
    tree t = read(text, TYPED);
    return run_code(passed("", [&](CHR **targ) { kestrin_compile(&t, 0, nullptr, targ); }));
}

} // namespace kit
