// The choice of variants, once for each node that is linked.

#include "vm/variants.h"

#include <algorithm>
#include <bit>
#include <unordered_map>

#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/text.h"

HANDLER(setq);
HANDLER(if);
HANDLER(while);
HANDLER(index);

namespace {

using rows_by_handler = std::unordered_map<fcall, const variant_row *>;

const rows_by_handler &rows()
{
    static const rows_by_handler *made = [] {
        auto *rows = new rows_by_handler;
        for (const auto &family :
             {integer_variants, float_variants, compare_variants, control_variants,
              variable_variants, array_variants, cast_variants})
            for (const variant_row &row : family)
                for (const fcall handler : row.handlers) rows->emplace(handler, &row);
        return rows;
    }();
    return *made;
}

template <class T> operand_kind kind_of_leaf(const ULO *node)
{
    if (is_node(node, in_record<T>::constant)) return CONSTANT;
    if (is_node(node, func__getval) || is_node(node, in_record<T>::typed_read)) return VARIABLE;
    return ANY;
}

bool is_leaf(const ULO *node)
{
    for (const fcall leaf :
         {func__dummy_i, func__dummy_f, func__dummy_s, func__dummy_z, func__getval, func__getval_i,
          func__getval_f, func__getval_s, func__getval_z, func__getval_ptr})
        if (is_node(node, leaf)) return true;
    return false;
}

bool gives(const variant *operand, wanted want)
{
    return operand != nullptr && operand->letter == want.letter && (operand->exact || !want.exact);
}

operand_kind kind_of(const ULO *word, const variant *operand, wanted want)
{
    const ULO *node = node_at(word);
    if (!is_leaf(node)) {
        if (want.letter == 'V' && is_plain_member(node)) return MEMBER;
        if (operand != nullptr && operand->member && operand->letter == want.letter) return MEMBER;
        return gives(operand, want) ? HANDED : EXPRESSION;
    }
    switch (want.letter) {
    case 'I': return kind_of_leaf<SLO>(node);
    case 'F': return kind_of_leaf<DFL>(node);
    case 'S': return kind_of_leaf<const CHR *>(node);
    default:
        if (is_node(node, func__getval_ptr)) return ANY;
        return is_variable_read(node) ? VARIABLE : CONSTANT;
    }
}

template <class function> void put(ULO *node, function *handler)
{
    node[0] = reinterpret_cast<ULO>(handler);
}

void make_it_hand(ULO *node, const variant *form)
{
    switch (form->letter) {
    case 'I': return put(node, form->handing.integer);
    case 'F': return put(node, form->handing.real);
    default: return put(node, form->handing.text);
    }
}

using kind_pair = std::array<operand_kind, 2>;

// The row's variant for operands of these kinds.
const variant &variant_for(const variant_row &row, kind_pair kinds)
{
    if (row.operands[1].letter == 0) return row.variants[kinds[0]];
    return row.variants[kinds[0] * OPERAND_KINDS + kinds[1]];
}

// The same, for the nearest kinds that the row has a variant for.
const variant &settle(const variant_row &row, const variant *const *operands, kind_pair *kinds)
{
    const auto without_handed = [](kind_pair pair) {
        std::replace(pair.begin(), pair.end(), HANDED, EXPRESSION);
        return pair;
    };
    kind_pair no_member = *kinds;
    for (std::size_t i = 0; i < 2; i++)
        if (no_member[i] == MEMBER)
            no_member[i] = gives(operands[i], row.operands[i]) ? HANDED : EXPRESSION;
    for (const kind_pair &nearest : {*kinds, without_handed(*kinds), no_member}) {
        *kinds = nearest;
        if (variant_for(row, nearest).record != nullptr) return variant_for(row, nearest);
    }
    *kinds = without_handed(no_member);
    return variant_for(row, *kinds);
}

} // namespace

const variant *specialise(ULO *node, const ULO *words, const variant *const *operands, bool used)
{
    const auto found = rows().find(reinterpret_cast<fcall>(node[0]));
    if (found == rows().end()) return nullptr;
    const variant_row &row = *found->second;
    words += row.first;
    operands += row.first;
    if (row.together != nullptr && gives(operands[0], row.operands[0]) &&
        operands[0]->*row.together != nullptr) {
        put(node, operands[0]->*row.together);
        return nullptr;
    }
    kind_pair kinds = {kind_of(words, operands[0], row.operands[0]), EXPRESSION};
    if (row.operands[1].letter != 0) kinds[1] = kind_of(words + 1, operands[1], row.operands[1]);
    if (kinds[0] == ANY || kinds[1] == ANY) return nullptr;
    const variant &chosen = settle(row, operands, &kinds);
    for (std::size_t i = 0; i < 2; i++)
        if (kinds[i] == HANDED) make_it_hand(reinterpret_cast<ULO *>(words[i]), operands[i]);
    put(node, used || chosen.unused == nullptr ? chosen.record : chosen.unused);
    return &chosen;
}

namespace {

using facts_by_form = std::unordered_map<fcall, form_facts>;

void note(facts_by_form *facts, fcall form, form_facts of)
{
    if (form != nullptr) facts->emplace(form, of);
}

void note_variant(facts_by_form *facts, const variant &made, fcall handler)
{
    const auto handing = std::bit_cast<fcall>(made.handing);
    for (const fcall form : {made.record, made.unused}) note(facts, form, {handler, form});
    note(facts, handing, {handler, made.record});
    note(facts, made.assigning, {func__setq, made.assigning});
    note(facts, made.choosing, {func__if, made.choosing});
    note(facts, made.looping, {func__while, made.looping});
}

const facts_by_form &all_facts()
{
    static const facts_by_form *made = [] {
        auto *facts = new facts_by_form;
        for (const auto &[handler, row] : rows()) {
            const std::size_t count =
                row->operands[1].letter == 0 ? OPERAND_KINDS : OPERAND_KINDS * OPERAND_KINDS;
            for (std::size_t i = 0; i < count; i++)
                note_variant(facts, row->variants[i], row->handlers[0]);
        }
        for (const auto &[form, handler] : appending_forms()) note(facts, form, {handler, form});
        note(facts, func__index_lent, {func__index, func__index_lent});
        return facts;
    }();
    return *made;
}

} // namespace

form_facts facts_of_form(fcall form)
{
    const auto found = all_facts().find(form);
    return found == all_facts().end() ? form_facts{form, form} : found->second;
}
