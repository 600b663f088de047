// The instruction table as data. Everything here is derived from the rows of isa.def; a bad row
// does not compile.

#include "frontend/isa.h"

#include <cstring>

#include "kestrin/unit.h"
#include "strings/scratch.h"
#include "strings/static_string.h"
#include "strings/tokens.h"

// The only declarations of the handlers.
#define DECLARE(f) void func__##f(const ULO *dat_ptr, kestrin_data *ret_dat);
#define DECLARE_NONE(f)
#define DECLARE_G(f) DECLARE(f)
#define DECLARE_GJ(f) DECLARE(f) DECLARE(f##_j)
#define DECLARE_GJFSZ(f) DECLARE(f) DECLARE(f##_i) DECLARE(f##_f) DECLARE(f##_s) DECLARE(f##_z)
#define ROW(id, mnemonic, n, res, letters, slots, f) DECLARE_##slots(f)
#include "frontend/isa.def"
#undef ROW

namespace {

#define ROW(id, mnemonic, n, res, letters, slots, f)                                               \
    constinit static_string mnemonic_##id(mnemonic);                                               \
    constinit const static_string letters_##id(letters);
#include "frontend/isa.def"
#undef ROW

#define SLOTS_NONE(f) nullptr
#define SLOTS_G(f) func__##f
#define SLOTS_GJ(f) func__##f, func__##f##_j
#define SLOTS_GJFSZ(f) func__##f, func__##f##_i, func__##f##_f, func__##f##_s, func__##f##_z

constexpr bool row_is_sound(int n, char res, std::string_view letters)
{
    const std::size_t count = static_cast<std::size_t>(n < 0 ? -n : n);
    return n >= -1 && letters.size() == count && consists_of(letters, "VUEIFSZ-") &&
           consists_of(std::string_view(&res, 1), "UIFSZ");
}

#define ROW(id, mnemonic, n, res, letters, slots, f)                                               \
    static_assert(row_is_sound(n, res, letters), mnemonic);
#include "frontend/isa.def"
#undef ROW

} // namespace

isa_row built_in_isa[ISA_ROWS] = {
#define ROW(id, mnemonic, n, res, letters, slots, f)                                               \
    {&isa_mnemonics[ISA_##id], n, res, letters_##id.text, {SLOTS_##slots(f)}},
#include "frontend/isa.def"
#undef ROW
};

CHR *isa_mnemonics[ISA_ROWS] = {
#define ROW(id, ...) mnemonic_##id.text,
#include "frontend/isa.def"
#undef ROW
};

isa_row *isa_table = built_in_isa;
ULO isa_count = ISA_ROWS;
const INSTRUCTION_STRU *isaext_table = nullptr;
ULO isaext_count = 0;
UCH names_are_utf8 = 0;
UCH engine_open = 1;

std::string_view mnemonic(isa_id id) { return view(isa_mnemonics[id]); }

void bind_isaext()
{
    if (isaext_table != nullptr) return;
    isaext_table = INSTRUCTION_SET;
    isaext_count = INSTRUCTIONS;
}

std::string_view operand_letters(const INSTRUCTION_STRU &row)
{
    return row.op_type == nullptr ? "" : reinterpret_cast<const CHR *>(row.op_type);
}

ULO slot_of_suffix(CHR letter)
{
    switch (letter) {
    case 'I':
    case 'J': return 1;
    case 'F': return 2;
    case 'S': return 3;
    case 'Z': return 4;
    default: return 0;
    }
}
