// Programs on their way to compiled code and back, as the tests of bytecode use them.
#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bytecode/compile.h"
#include "bytecode/decompile.h"
#include "frontend/forms.h"
#include "tests/kit/passes.h"

namespace kit {

using code = std::vector<ULO>;

inline std::string_view bytes_of(const code &words)
{
    return {reinterpret_cast<const CHR *>(words.data()), words.size() * sizeof(ULO)};
}

inline code compiled(const std::string &text, UCH debug_level = 0)
{
    scratch bytes;
    tree t = read(text, TYPED);
    kestrin_compile(&t, debug_level, nullptr, &bytes.s);
    code words(len(bytes.s) / sizeof(ULO));
    memcpy(words.data(), bytes.s, len(bytes.s));
    return words;
}

// Checked text as the driver compiles it.
inline code prepared(const std::string &checked_text, UCH debug_level = 0)
{
    std::string text = squeezed(checked_text);
    if (!is_executable_form(read(text))) text = wrapped(text);
    return compiled(typed(text).text, debug_level);
}

// Texts that the checker refuses give no code.
inline code program(const std::string &source, UCH debug_level = 0)
{
    const std::string text = checked("(progn " + source + ")");
    return text.starts_with('(') ? prepared(text, debug_level) : code();
}

struct listing {
    bool is_good;
    std::string text, messages;
};

inline listing decompiled(std::string_view bytes, decompile_mode mode = ENTIRE,
                          code_origin origin = code_origin::OWN)
{
    scratch text, messages;
    const bool is_good = kestrin_decompile(bytes, mode, origin, &text.s, &messages.s);
    return {is_good, std::string(view(text.s)), std::string(view(messages.s))};
}

} // namespace kit
