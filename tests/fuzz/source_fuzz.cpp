// Any bytes as a source file: from the reader to linked code. What the checker refuses goes on all
// the same behind a binding, because words of the command line enter the program unchecked.
#include "bytecode/link.h"
#include "tests/fuzz/fuzz.h"
#include "tests/kit/code.h"

namespace {

void compile_and_link(const std::string &text, UCH debug_level)
{
    const kit::code code = kit::prepared(text, debug_level);
    kit::passed(kit::bytes_of(code), [](CHR **image) { kestrin_link(*image); });
}

} // namespace

void try_input(std::string_view bytes)
{
    if (bytes.size() > 4096) return;
    std::string source;
    if (join_lines(&source, bytes, bytes.size() % 2) != 0) return;
    const std::string program = kit::checked("(PROGN " + source + ")");
    if (program.starts_with('(')) {
        // Checked text checks again to itself, where no comment was lost late.
        const std::string again = kit::checked(program);
        require(again == program || again.starts_with('['));
        compile_and_link(program, bytes.size() % 3);
    }
    compile_and_link("(PROGN (SETQ $1 " + source + ") 1)", 0);
}
