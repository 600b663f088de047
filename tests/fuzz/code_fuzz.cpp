// Any bytes as bytecode; the first one says how it is read. The decompiler gives a text, and
// squeezing that is safe. What the verifier accepts decompiles without a complaint, and is linked,
// which reads and writes inside it alone.
#include "bytecode/layout.h"
#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "tests/fuzz/fuzz.h"
#include "tests/kit/code.h"

void try_input(std::string_view bytes)
{
    input in = {bytes};
    const UCH how = in.byte();
    const auto mode = static_cast<decompile_mode>(how % 3);
    const std::string text =
        kit::decompiled(in.rest, mode, static_cast<code_origin>(how / 8 % 3), how & 4).text;
    require(text.starts_with('('));
    kit::squeezed(text);
    if (!verify_bytecode(in.rest)) return;
    // The lists of a debug text may tell the decompiler other counts of operands.
    image_layout root;
    const code_words words(in.rest);
    require(read_layout(words, 0, words.size(), &root));
    require(!debug_text(words, root).empty() ||
            kit::decompiled(in.rest, ENTIRE, code_origin::OWN, true).is_good);
    kit::passed(in.rest, [](CHR **code) { kestrin_link(*code); });
}
