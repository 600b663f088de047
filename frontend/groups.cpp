// Group strings, built once at the start from the table in force.

#include "frontend/groups.h"

#include <string>

#include "frontend/isa.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"

namespace {

constexpr isa_id leaders[GROUPS] = {
    ISA_PROGN,    ISA_SETQ, ISA_ALSETQ, ISA_ARSETQ, ISA_INDEX, ISA_ALINDEX,
    ISA_DEFUN,    ISA_IF,   ISA_WHILE,  ISA_FOR,    ISA_BREAK, ISA_EXIT,
    ISA_COMMENTS, ISA_AND,  ISA_AND_2,  ISA_OR,     ISA_OR_2,
};

CHR *strings[GROUPS]; // live as long as the process

bool are_aliases(const isa_row &a, const isa_row &b)
{
    if (a.operands != b.operands || a.ret_type != b.ret_type || !cmp(a.op_type, b.op_type))
        return false;
    for (int i = 0; i < 5; i++)
        if (a.slots[i] != b.slots[i]) return false;
    return true;
}

const isa_row *row_named(std::string_view name)
{
    for (ULO i = 0; i < isa_count; i++)
        if (view(*isa_table[i].mnemonic) == name) return &isa_table[i];
    return nullptr;
}

} // namespace

void _group_ctrl_cop(CHR **group, const CHR *mnemonic)
{
    const isa_row *row = row_named(view(mnemonic));
    if (row == nullptr) return;
    std::string text = " ";
    text.append(view(mnemonic)).append(" ");
    for (const isa_row *other = isa_table; other < isa_table + isa_count; other++)
        if (other != row && are_aliases(*row, *other))
            text.append(view(*other->mnemonic)).append(" ");
    assign(group, text);
}

bool cmp_mnm(std::string_view mnemonic, const CHR *group)
{
    const std::string framed = std::string(" ").append(mnemonic).append(" ");
    return view(group).find(framed) != std::string_view::npos;
}

void build_groups()
{
    for (unsigned g = 0; g < GROUPS; g++)
        if (strings[g] == nullptr) _group_ctrl_cop(&strings[g], isa_mnemonics[leaders[g]]);
}

const CHR *group_string(group g) { return strings[g]; }
