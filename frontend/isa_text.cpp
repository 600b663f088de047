// The instruction tables as text: what a unit's main reads and changes before the engine starts,
// and what a precompiled file is bound to.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <span>
#include <string>
#include <utility>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "strings/tokens.h"

FATAL_SITE(MNEMONICS_GET_FOREIGN, "kestrin", "_internal_ISA_COP_mnemonics_get", 30)
FATAL_SITE(MNEMONICS_SET_STARTED, "kestrin", "_internal_ISA_COP_mnemonics_set", 31)
FATAL_SITE(MNEMONICS_SET_FOREIGN, "kestrin", "_internal_ISA_COP_mnemonics_set", 32)
FATAL_SITE(NAMES_MODE_SET_STARTED, "kestrin", "_internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set",
           33)
FATAL_SITE(ISA_SET_STARTED, "kestrin", "_internal_ISA_COPs_set", 34)
FATAL_SITE(ISA_SET_ROWS, "kestrin", "_internal_ISA_COPs_set", 35)
FATAL_SITE(ISA_SET_CELLS, "kestrin", "_internal_ISA_COPs_set", 36)
FATAL_SITE(ISAEXT_SET_STARTED, "kestrin", "_internal_ISAext_COPs_set", 37)
FATAL_SITE(ISAEXT_SET_ROWS, "kestrin", "_internal_ISAext_COPs_set", 38)

namespace {

std::mutex tables;

bool is_renamed[ISA_ROWS]; // a mnemonic's string lies on the heap, no longer in the program's data

const CHR changed_isa[] =
    "() call is not allowed after _internal_ISA_COPs_set() has already changed ISA COPs (note that "
    "optionally you can reset ISA COPs back to their original state by calling "
    "_internal_ISA_COPs_set() with an empty argument string).";
const CHR already_started[] = "() call is not allowed after the VM engine is already started.";

void require(bool allowed, const fatal_site &site, const CHR *function, const CHR *text)
{
    if (!allowed) fatal(site, std::string(function).append(text).c_str());
}

void append_address(std::string *text, fcall handler)
{
    text->append(" ").append(std::to_string(reinterpret_cast<ULO>(handler)));
}

void append_signature(std::string *text, std::string_view name, SSH operands, UCH ret_type,
                      std::string_view letters)
{
    text->append("(").append(name).append(" ").append(std::to_string(operands)).append(" ");
    text->push_back(static_cast<CHR>(ret_type));
    text->append(" \"").append(letters).append("\"");
}

// Takes the first token off `rest`.
std::string_view take_token(std::string_view *rest)
{
    const std::string_view token = first_token(*rest);
    *rest = behind_first_token(*rest);
    return token;
}

// The number at the beginning of the next token.
SLO take_number(std::string_view *rest) { return atol(std::string(take_token(rest)).c_str()); }

// What stands in front of the handlers in a row of either table.
struct row_text {
    std::string_view name, letters;
    SSH operands;
    UCH ret_type;
};

std::string_view without_quotes(std::string_view letters)
{
    const bool is_quoted = letters.size() >= 2 && letters.front() == '"';
    return is_quoted ? trimmed(letters.substr(1, letters.size() - 2)) : letters;
}

row_text take_signature(std::string_view *row)
{
    row_text read;
    read.name = take_token(row);
    read.operands = static_cast<SSH>(std::clamp<SLO>(take_number(row), INT16_MIN, INT16_MAX));
    const std::string_view ret_type = take_token(row);
    read.ret_type = ret_type.empty() ? 0 : static_cast<UCH>(ret_type.front());
    read.letters = without_quotes(take_token(row));
    return read;
}

fcall take_handler(std::string_view *row) { return reinterpret_cast<fcall>(take_number(row)); }

CHR *new_string(std::string_view text)
{
    CHR *string = nullptr;
    return assign(&string, text);
}

template <class T> T *allocate(ULO count, const fatal_site &site)
{
    void *block = calloc(count, sizeof(T));
    if (block == nullptr) fatal(site, "Out of memory.");
    return static_cast<T *>(block);
}

// The rows of a table text up to what is none.
template <class Row>
std::span<Row> read_rows(std::string_view table, const fatal_site &site,
                         void (*read_row)(Row *, std::string_view))
{
    ULO count = 0;
    for (std::string_view rest = table; is_list(take_token(&rest));) count++;
    const std::span<Row> rows(count == 0 ? nullptr : allocate<Row>(count, site), count);
    for (Row &row : rows) read_row(&row, trimmed(inside(take_token(&table))));
    return rows;
}

void free_isa()
{
    if (isa_is_built_in()) return;
    for (ULO i = 0; i < isa_count; i++) {
        free_string(isa_table[i].mnemonic);
        free(isa_table[i].mnemonic);
        CHR *letters = const_cast<CHR *>(isa_table[i].op_type);
        free_string(&letters);
    }
    free(isa_table);
    isa_table = built_in_isa;
    isa_count = ISA_ROWS;
}

void read_isa_row(isa_row *row, std::string_view text)
{
    const row_text read = take_signature(&text);
    row->mnemonic = allocate<CHR *>(1, site::ISA_SET_CELLS);
    *row->mnemonic = new_string(read.name);
    row->operands = read.operands;
    row->ret_type = read.ret_type;
    row->op_type = new_string(read.letters);
    for (fcall &slot : row->slots) slot = take_handler(&text);
}

// An ISAext table made from text owns its names and letters.
bool isaext_is_made = false;

void free_isaext()
{
    if (isaext_is_made) {
        for (ULO i = 0; i < isaext_count; i++) {
            free(const_cast<CHR *>(isaext_table[i].fnc_name));
            free(const_cast<UCH *>(isaext_table[i].op_type));
        }
        free(const_cast<INSTRUCTION_STRU *>(isaext_table));
    }
    isaext_is_made = false;
    isaext_table = nullptr;
    bind_isaext();
}

void read_isaext_row(INSTRUCTION_STRU *row, std::string_view text)
{
    const row_text read = take_signature(&text);
    *row = {strdup(std::string(read.name).c_str()), read.operands, read.ret_type,
            reinterpret_cast<const UCH *>(strdup(std::string(read.letters).c_str())),
            take_handler(&text)};
    if (row->fnc_name == nullptr || row->op_type == nullptr)
        fatal(site::ISAEXT_SET_ROWS, "Out of memory.");
}

} // namespace

void _internal_ISA_COP_mnemonics_get(CHR **lst)
{
    require(isa_is_built_in(), site::MNEMONICS_GET_FOREIGN, "_internal_ISA_COP_mnemonics_get",
            changed_isa);
    const std::lock_guard lock(tables);
    std::string text;
    for (const CHR *cell : isa_mnemonics) text.append(view(cell)).append(" ");
    assign(lst, text);
    rtrim(lst, *lst);
}

void _internal_ISA_COP_mnemonics_set(const CHR *list)
{
    const CHR name[] = "_internal_ISA_COP_mnemonics_set";
    require(engine_open != 0, site::MNEMONICS_SET_STARTED, name, already_started);
    require(isa_is_built_in(), site::MNEMONICS_SET_FOREIGN, name, changed_isa);
    const std::lock_guard lock(tables);
    std::string_view rest = view(list);
    for (ULO i = 0; i < ISA_ROWS; i++) {
        CHR **cell = &isa_mnemonics[i];
        const std::string_view word = take_token(&rest);
        if (word.empty()) break;
        if (word == view(*cell)) continue;
        if (!std::exchange(is_renamed[i], true)) *cell = nullptr;
        assign(cell, word);
    }
    forget_words();
}

UCH _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_get() { return names_are_utf8; }

void _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(UCH ASCIIorUTF8)
{
    require(engine_open != 0, site::NAMES_MODE_SET_STARTED,
            "_internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set", already_started);
    names_are_utf8 = ASCIIorUTF8;
}

void _internal_ISA_COPs_get_(CHR **tab, UCH with_handlers)
{
    const std::lock_guard lock(tables);
    std::string text;
    for (ULO i = 0; i < isa_count; i++) {
        const isa_row &row = isa_table[i];
        append_signature(&text, view(*row.mnemonic), row.operands, row.ret_type, view(row.op_type));
        if (with_handlers)
            for (fcall slot : row.slots) append_address(&text, slot);
        text.append(")");
    }
    assign(tab, text);
}

void _internal_ISAext_COPs_get_(CHR **tab, UCH with_handlers)
{
    const std::lock_guard lock(tables);
    bind_isaext();
    std::string text;
    for (ULO i = 0; i < isaext_count; i++) {
        const INSTRUCTION_STRU &row = isaext_table[i];
        append_signature(&text, row.fnc_name, row.operands, row.ret_type, operand_letters(row));
        if (with_handlers) append_address(&text, row.func_ptr);
        text.append(")");
    }
    assign(tab, text);
}

void _internal_ISA_COPs_get(CHR **tab) { _internal_ISA_COPs_get_(tab, 1); }

void _internal_ISAext_COPs_get(CHR **tab) { _internal_ISAext_COPs_get_(tab, 1); }

void _internal_ISA_COPs_set(const CHR *table)
{
    require(engine_open != 0, site::ISA_SET_STARTED, "_internal_ISA_COPs_set", already_started);
    const std::lock_guard lock(tables);
    free_isa();
    forget_words();
    const auto rows = read_rows(view(table), site::ISA_SET_ROWS, read_isa_row);
    if (rows.empty()) return;
    isa_table = rows.data();
    isa_count = rows.size();
}

void _internal_ISAext_COPs_set(const CHR *table)
{
    require(engine_open != 0, site::ISAEXT_SET_STARTED, "_internal_ISAext_COPs_set",
            already_started);
    const std::lock_guard lock(tables);
    free_isaext();
    forget_words();
    const auto rows = read_rows(view(table), site::ISAEXT_SET_ROWS, read_isaext_row);
    if (rows.empty()) return;
    isaext_table = rows.data();
    isaext_count = rows.size();
    isaext_is_made = true;
}
