// Any bytes as bytecode: what the verifier accepts decompiles without a complaint, and is linked,
// which reads and writes inside it alone.
#include <cstdlib>
#include <cstring>
#include <string>

#include "bytecode/decompile.h"
#include "bytecode/layout.h"
#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "strings/scratch.h"
#include "vm/machine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    setup_quarne_thread_safe_functionality_for_local_thread();
    const std::string_view bytes(reinterpret_cast<const CHR *>(data), size);
    if (!verify_bytecode(bytes)) return 0;
    scratch code, text, messages;
    assign(&code.s, bytes);
    const bool is_good =
        kestrin_decompile({code.s, size, true, ENTIRE, true}, &text.s, &messages.s);
    // The lists of a debug text may tell the decompiler other counts of operands.
    image_layout root;
    const code_words words(bytes);
    const bool has_layout = read_layout(words, 0, words.size(), &root);
    if (!has_layout || (debug_text(words, root).empty() && !is_good)) abort();
    kestrin_link(code.s);
    return 0;
}
