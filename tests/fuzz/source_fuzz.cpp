// Any bytes as a source file: from the reader to linked code. What the checker refuses goes on all
// the same behind a binding, because words of the command line enter the program unchecked.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bytecode/compile.h"
#include "bytecode/link.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/groups.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "strings/scratch.h"
#include "vm/machine.h"

namespace {

// Checked text, which must check again to itself where no comment was lost late; empty if refused.
std::string checked(const std::string &text)
{
    scratch once, twice;
    lut *table = nullptr;
    assign(&once.s, text);
    const bool accepted = kestrin_check(&once.s, "Main", &table) >= 0;
    lut_free(&table);
    if (!accepted || len(once.s) == 0) return {};
    equ(&twice.s, once.s);
    if (kestrin_check(&twice.s, "Main", &table) >= 0 && view(once.s) != view(twice.s)) abort();
    lut_free(&table);
    return std::string(view(once.s));
}

void compile_and_link(const std::string &text, UCH debug_level)
{
    scratch code, types;
    assign(&code.s, text);
    progn_squeeze(&code.s);
    if (!is_executable_form(view(code.s))) assign(&code.s, wrapped(view(code.s)));
    assign(&types.s, "\xFF");
    kestrin_justify(&code.s, &types.s);
    kestrin_compile(&code.s, debug_level, nullptr);
    kestrin_link(code.s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool started = [] {
        setup_quarne_thread_safe_functionality_for_local_thread();
        build_groups();
        return true;
    }();
    if (!started || size > 4096) return 0;
    std::string source;
    if (join_lines(&source, {reinterpret_cast<const CHR *>(data), size}, size % 2) != 0) return 0;
    const std::string program = checked("(PROGN " + source + ")");
    if (!program.empty()) compile_and_link(program, size % 3);
    compile_and_link("(PROGN (SETQ $1 " + source + ") 1)", 0);
    return 0;
}
