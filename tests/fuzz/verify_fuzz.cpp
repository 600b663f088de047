// Any bytes as bytecode: what the verifier accepts is linked, which reads and writes inside it
// alone, and then decompiles without a complaint about its form.
#include <cstdlib>
#include <cstring>
#include <string>

#include "bytecode/decompile.h"
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
    if (!kestrin_decompile({code.s, size, true, ENTIRE, true}, &text.s, &messages.s) &&
        view(messages.s).find("Unknown_Code") != std::string::npos)
        abort();
    kestrin_link(code.s);
    return 0;
}
