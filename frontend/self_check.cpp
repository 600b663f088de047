// The test of the instruction tables. The built-in rows have passed it when the engine was
// compiled; at run time it is for what a unit has brought in.

#include "frontend/self_check.h"

#include <cstdlib>
#include <string>

#include "frontend/isa.h"
#include "frontend/syntax.h"
#include "frontend/token.h"
#include "strings/scratch.h"
#include "strings/tokens.h"

namespace {

// The letter in front lets a mnemonic begin with any later character of a name.
bool is_legal_name(std::string_view name)
{
    std::string folded;
    return kestrin_type(std::string("U").append(name), &folded) == 'V';
}

bool is_new(lut **table, std::string_view name, SLO operands)
{
    scratch key;
    assign(&key.s, name);
    return lut_add(table, key.s, operands) == 0;
}

// What a row must be; the two tables differ in the letters that they allow.
struct row_facts {
    std::string_view name;
    SLO operands;
    ULO expected_letters;
    std::string_view ret_type, ret_allowed, letters, letters_allowed;
};

SLO check_row(lut **table, const row_facts &row)
{
    if (!is_legal_name(row.name)) return syntax_error<syntax::INTERNAL_NAME>(row.name);
    if (!is_new(table, row.name, row.operands))
        return syntax_error<syntax::INTERNAL_DUPLICATE>(row.name);
    if (!consists_of(row.ret_type, row.ret_allowed))
        return syntax_error<syntax::INTERNAL_RETURN>(row.name);
    if (row.letters.size() != row.expected_letters)
        return syntax_error<syntax::INTERNAL_OPERANDS>(row.name);
    if (!consists_of(row.letters, row.letters_allowed))
        return syntax_error<syntax::INTERNAL_LETTERS>(row.name);
    return 0;
}

std::string_view one_letter(const UCH &letter)
{
    return {reinterpret_cast<const CHR *>(&letter), 1};
}

SLO check_isa_row(lut **table, const isa_row &row)
{
    return check_row(table, {view(*row.mnemonic), row.operands, ULO(std::abs(row.operands)),
                             one_letter(row.ret_type), "UIFSZ", view(row.op_type), "-VUEIFSZ"});
}

SLO check_isaext_row(lut **table, const INSTRUCTION_STRU &row)
{
    return check_row(table, {row.fnc_name, row.operands, ULO(SLO(row.operands)),
                             one_letter(row.ret_type), "IFSZ", operand_letters(row), "IFSZ"});
}

} // namespace

void enter_instructions(lut **table)
{
    for (ULO i = 0; i < isa_count; i++)
        lut_add(table, *isa_table[i].mnemonic, isa_table[i].operands);
    for (ULO i = 0; i < isaext_count; i++)
        is_new(table, isaext_table[i].fnc_name, isaext_table[i].operands);
}

SLO check_instruction_tables(lut **table)
{
    bind_isaext();
    for (ULO i = 0; i < isa_count; i++)
        if (check_isa_row(table, isa_table[i]) == FAILED) return FAILED;
    for (ULO i = 0; i < isaext_count; i++)
        if (check_isaext_row(table, isaext_table[i]) == FAILED) return FAILED;
    if (*table != nullptr) (*table)->lut_scope++;
    return 0;
}
