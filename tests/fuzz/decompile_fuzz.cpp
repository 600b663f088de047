// Any bytes as bytecode that nobody trusts: the decompiler gives a text, and squeezing it is safe.
#include <cstdlib>
#include <cstring>
#include <string>

#include "bytecode/decompile.h"
#include "frontend/squeeze.h"
#include "strings/scratch.h"
#include "vm/machine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    setup_quarne_thread_safe_functionality_for_local_thread();
    // A block of its own: what is read behind it is found out.
    const std::string bytes(reinterpret_cast<const CHR *>(data) + 1, size - 1);
    const auto mode = static_cast<decompile_mode>(data[0] % 3);
    scratch text, messages;
    kestrin_decompile({bytes.data(), bytes.size(), (data[0] & 4) != 0, mode, (data[0] & 8) != 0},
                      &text.s, &messages.s);
    if (len(text.s) < 2 || text.s[0] != '(') abort();
    progn_squeeze(&text.s);
    return 0;
}
