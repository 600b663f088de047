// The front end's passes on plain texts, as unit tests use them.
#pragma once

#include <string>

#include "frontend/check.h"
#include "frontend/groups.h"
#include "frontend/justify.h"
#include "frontend/squeeze.h"
#include "strings/scratch.h"
#include "vm/machine.h"

namespace kit {

inline void start_passes()
{
    setup_quarne_thread_safe_functionality_for_local_thread();
    build_groups();
}

// The text as the checker leaves it; the checker's message in brackets if it refuses the text.
inline std::string checked(const std::string &text)
{
    scratch s;
    assign(&s.s, text);
    lut *known = nullptr;
    const bool refused = kestrin_check(&s.s, "Main", &known) < 0;
    if (known != nullptr) lut_free(&known);
    const std::string message(view(rt_ctrl->rt_run_text));
    rt_ctrl->rt_run_flag = 0;
    assign(&rt_ctrl->rt_run_text, "");
    return refused ? "[" + message + "]" : std::string(view(s.s));
}

inline std::string squeezed(const std::string &checked_text)
{
    scratch s;
    assign(&s.s, checked_text);
    progn_squeeze(&s.s);
    return std::string(view(s.s));
}

struct typed_text {
    std::string text, types; // the text with its suffixes, the UDF types behind it
    UCH letter;
    bool operator==(const typed_text &) const = default;
};

inline typed_text typed(const std::string &squeezed_text, const std::string &types = "\xFF")
{
    scratch text, context;
    assign(&text.s, squeezed_text);
    assign(&context.s, types);
    const UCH letter = kestrin_justify(&text.s, &context.s);
    return {std::string(view(text.s)), std::string(view(context.s)), letter};
}

} // namespace kit
